#include "sim/net/process.h"
#include "sim/net/thread.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

extern char **environ;

namespace sim::net {

namespace {

[[noreturn]] void throw_error(int error, const std::string &what) {
    throw std::system_error(error, std::generic_category(), what);
}

// Waits for `fd` to become readable; false on time-out.
bool readable_within(int fd, std::chrono::milliseconds limit) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        pollfd p{fd, POLLIN, 0};
        const int r = ::poll(&p, 1, static_cast<int>(std::max<long long>(0, left.count())));
        if (r < 0 && errno == EINTR) continue;
        return r == 1;
    }
}

} // namespace

void raise_to_real_time() {
    sched_param param{};
    param.sched_priority = sched_get_priority_min(SCHED_FIFO);
    pthread_setschedparam(pthread_self(), SCHED_FIFO, &param);
}

process_id current_process_id() { return ::getpid(); }

stop_requests::stop_requests() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
}

std::string stop_requests::wait() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    int received = 0;
    while (sigwait(&signals, &received) != 0) {
    }
    return received == SIGINT ? "SIGINT" : "SIGTERM";
}

bool request_stop(process_id id) { return ::kill(static_cast<pid_t>(id), SIGTERM) == 0; }

struct child_process::impl {
    pid_t pid = -1;
    int pidfd = -1;  // the child's end is an event to poll for, not a state to sample
    int output = -1; // read end of the child's standard output, or -1
    bool ended = false;
    int status = 0;
    std::string pending;

    void reap() { ended = ::waitpid(pid, &status, 0) == pid; }
};

child_process::child_process(const std::string &program, const std::vector<std::string> &arguments,
                             bool capture_output)
    : impl_(std::make_unique<impl>()) {
    std::vector<std::string> words{program};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char *> argv;
    for (auto &word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);

    int pipe_ends[2] = {-1, -1};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (capture_output) {
        if (::pipe2(pipe_ends, O_CLOEXEC) != 0) {
            posix_spawn_file_actions_destroy(&actions);
            throw_error(errno, "pipe2");
        }
        // dup2 clears close-on-exec on the copy the child keeps.
        posix_spawn_file_actions_adddup2(&actions, pipe_ends[1], STDOUT_FILENO);
    }
    const int error =
        posix_spawn(&impl_->pid, program.c_str(), &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (capture_output) ::close(pipe_ends[1]);
    if (error != 0) {
        if (capture_output) ::close(pipe_ends[0]);
        throw_error(error, program);
    }
    impl_->output = pipe_ends[0];
    impl_->pidfd = static_cast<int>(::syscall(SYS_pidfd_open, impl_->pid, 0));
    if (impl_->pidfd < 0) {
        const int e = errno;
        ::kill(impl_->pid, SIGKILL);
        impl_->reap();
        if (impl_->output >= 0) ::close(impl_->output);
        throw_error(e, "pidfd_open");
    }
}

child_process::~child_process() {
    if (!impl_->ended && impl_->pid > 0) {
        ::kill(impl_->pid, SIGKILL);
        impl_->reap();
    }
    if (impl_->pidfd >= 0) ::close(impl_->pidfd);
    if (impl_->output >= 0) ::close(impl_->output);
}

process_id child_process::pid() const { return impl_->pid; }

bool child_process::wait(std::chrono::milliseconds limit) {
    if (impl_->ended) return true;
    if (!readable_within(impl_->pidfd, limit)) return false;
    impl_->reap();
    return impl_->ended;
}

std::optional<int> child_process::exit_code() const {
    if (!impl_->ended || !WIFEXITED(impl_->status)) return std::nullopt;
    return WEXITSTATUS(impl_->status);
}

std::string child_process::describe() const {
    if (!impl_->ended) return "still running";
    const int status = impl_->status;
    if (WIFEXITED(status)) return "exit " + std::to_string(WEXITSTATUS(status));
    if (WIFSIGNALED(status))
        return "signal " + std::to_string(WTERMSIG(status)) + " (" + strsignal(WTERMSIG(status)) +
               ")";
    return "status " + std::to_string(status);
}

std::string child_process::output_line(std::chrono::milliseconds limit) {
    if (impl_->output < 0) return "";
    const auto deadline = std::chrono::steady_clock::now() + limit;
    for (;;) {
        const auto end = impl_->pending.find('\n');
        if (end != std::string::npos) {
            std::string line = impl_->pending.substr(0, end);
            impl_->pending.erase(0, end + 1);
            if (!line.empty() && line.back() == '\r') line.pop_back();
            return line;
        }
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0 || !readable_within(impl_->output, left)) return "";
        char chunk[256];
        ssize_t n;
        do
            n = ::read(impl_->output, chunk, sizeof chunk);
        while (n < 0 && errno == EINTR);
        if (n <= 0) return ""; // the child closed its output
        impl_->pending.append(chunk, static_cast<std::size_t>(n));
    }
}

std::string make_temp_file(const std::string &prefix, const std::string &suffix) {
    std::string path =
        (std::filesystem::temp_directory_path() / (prefix + "XXXXXX" + suffix)).generic_string();
    const int fd = ::mkstemps(path.data(), static_cast<int>(suffix.size()));
    if (fd < 0) throw_error(errno, "mkstemps " + path);
    ::close(fd);
    return path;
}

bool file_is_open(const std::string &path) {
    std::error_code error;
    const auto target = std::filesystem::weakly_canonical(path);
    for (const auto &fd : std::filesystem::directory_iterator("/proc/self/fd"))
        if (std::filesystem::read_symlink(fd.path(), error) == target) return true;
    return false;
}

} // namespace sim::net
