#include "support/child_process.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

extern char **environ;

namespace ka_test {

child_process::child_process(const std::string &program,
                             const std::vector<std::string> &arguments) {
    std::vector<std::string> words{program};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char *> argv;
    for (auto &word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    int error = posix_spawn(&pid_, program.c_str(), nullptr, nullptr, argv.data(), environ);
    if (error != 0) throw std::system_error(error, std::generic_category(), program);
    // The child's end is an event to poll for (a pidfd), not a state to
    // sample in a loop.
    pidfd_ = static_cast<int>(::syscall(SYS_pidfd_open, pid_, 0));
    if (pidfd_ < 0) {
        int e = errno;
        ::kill(pid_, SIGKILL);
        ::waitpid(pid_, &status_, 0);
        throw std::system_error(e, std::generic_category(), "pidfd_open");
    }
}

child_process::~child_process() {
    if (!ended_ && pid_ > 0) {
        ::kill(pid_, SIGKILL);
        ::waitpid(pid_, &status_, 0);
    }
    if (pidfd_ >= 0) ::close(pidfd_);
}

bool child_process::wait(std::chrono::milliseconds limit) {
    if (ended_) return true;
    pollfd p{pidfd_, POLLIN, 0};
    int r;
    do
        r = ::poll(&p, 1, static_cast<int>(limit.count()));
    while (r < 0 && errno == EINTR);
    if (r != 1) return false;
    ended_ = ::waitpid(pid_, &status_, 0) == pid_;
    return ended_;
}

std::string child_process::describe() const {
    if (!ended_) return "still running";
    if (WIFEXITED(status_)) return "exit " + std::to_string(WEXITSTATUS(status_));
    if (WIFSIGNALED(status_))
        return "signal " + std::to_string(WTERMSIG(status_)) + " (" + strsignal(WTERMSIG(status_)) +
               ")";
    return "status " + std::to_string(status_);
}

} // namespace ka_test
