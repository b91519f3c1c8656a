#include "sim/net/process.h"
#include "sim/net/thread.h"

#include <windows.h>

#include <atomic>
#include <condition_variable>
#include <filesystem>
#include <mutex>
#include <system_error>
#include <thread>

namespace sim::net {

namespace {

[[noreturn]] void throw_last_error(const std::string &what) {
    throw std::system_error(static_cast<int>(GetLastError()), std::system_category(), what);
}

// One word of a command line, quoted so that the child's runtime splits it
// back unchanged: backslashes double only before a quote or the closing one.
void append_quoted(std::string &line, const std::string &word) {
    if (!line.empty()) line += ' ';
    if (!word.empty() && word.find_first_of(" \t\n\v\"") == std::string::npos) {
        line += word;
        return;
    }
    line += '"';
    std::size_t backslashes = 0;
    for (const char c : word) {
        if (c == '\\') {
            ++backslashes;
            continue;
        }
        if (c == '"') backslashes = backslashes * 2 + 1;
        line.append(backslashes, '\\');
        backslashes = 0;
        line += c;
    }
    line.append(backslashes * 2, '\\');
    line += '"';
}

// A stop request reaches a process in one of two ways: a console control
// event (Ctrl-C, Ctrl-Break, closing the console), or, where there is no
// shared console (a child whose output is a pipe), this named event, which
// request_stop() opens by the process id and sets.
std::string stop_event_name(process_id id) {
    return "Local\\ka_stop_request_" + std::to_string(id);
}

HANDLE stop_event = nullptr;
std::mutex stop_mutex;
std::string stop_name;

void note_stop(const char *name) {
    {
        std::lock_guard lock(stop_mutex);
        if (stop_name.empty()) stop_name = name;
    }
    SetEvent(stop_event);
}

BOOL WINAPI on_console_event(DWORD event) {
    const char *name = event == CTRL_C_EVENT       ? "CTRL_C_EVENT"
                       : event == CTRL_BREAK_EVENT ? "CTRL_BREAK_EVENT"
                       : event == CTRL_CLOSE_EVENT ? "CTRL_CLOSE_EVENT"
                                                   : nullptr;
    if (!name) return FALSE;
    note_stop(name);
    // The process ends as soon as a close handler returns; holding it here
    // lets the main thread stop the simulator and exit first.
    if (event == CTRL_CLOSE_EVENT) Sleep(INFINITE);
    return TRUE;
}

} // namespace

void raise_to_real_time() { SetThreadPriority(GetCurrentThread(), THREAD_PRIORITY_TIME_CRITICAL); }

process_id current_process_id() { return static_cast<process_id>(GetCurrentProcessId()); }

stop_requests::stop_requests() {
    if (!stop_event) {
        stop_event =
            CreateEventA(nullptr, TRUE, FALSE, stop_event_name(current_process_id()).c_str());
        if (!stop_event) throw_last_error("CreateEvent");
    }
    SetConsoleCtrlHandler(on_console_event, TRUE);
}

std::string stop_requests::wait() {
    WaitForSingleObject(stop_event, INFINITE);
    std::lock_guard lock(stop_mutex);
    return stop_name.empty() ? "stop request" : stop_name;
}

bool request_stop(process_id id) {
    const HANDLE event = OpenEventA(EVENT_MODIFY_STATE, FALSE, stop_event_name(id).c_str());
    if (!event) return GenerateConsoleCtrlEvent(CTRL_BREAK_EVENT, static_cast<DWORD>(id)) != 0;
    const bool set = SetEvent(event) != 0;
    CloseHandle(event);
    return set;
}

struct child_process::impl {
    PROCESS_INFORMATION process{};
    bool ended = false;
    DWORD code = 0;

    // The child's standard output, read by its own thread: a pipe cannot be
    // waited on with a limit.
    HANDLE output = nullptr;
    std::thread reader;
    std::mutex mutex;
    std::condition_variable changed;
    std::string pending;
    bool output_ended = false;

    void read_loop() {
        char chunk[256];
        DWORD got = 0;
        while (ReadFile(output, chunk, sizeof chunk, &got, nullptr) && got > 0) {
            {
                std::lock_guard lock(mutex);
                pending.append(chunk, got);
            }
            changed.notify_all();
        }
        {
            std::lock_guard lock(mutex);
            output_ended = true;
        }
        changed.notify_all();
    }

    bool finish(DWORD limit_ms) {
        if (ended) return true;
        if (WaitForSingleObject(process.hProcess, limit_ms) != WAIT_OBJECT_0) return false;
        GetExitCodeProcess(process.hProcess, &code);
        ended = true;
        return true;
    }
};

child_process::child_process(const std::string &program, const std::vector<std::string> &arguments,
                             bool capture_output)
    : impl_(std::make_unique<impl>()) {
    std::string line;
    append_quoted(line, program);
    for (const std::string &word : arguments)
        append_quoted(line, word);

    STARTUPINFOA startup{};
    startup.cb = sizeof startup;
    HANDLE write_end = nullptr;
    if (capture_output) {
        SECURITY_ATTRIBUTES inherited{sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
        if (!CreatePipe(&impl_->output, &write_end, &inherited, 0)) throw_last_error("CreatePipe");
        SetHandleInformation(impl_->output, HANDLE_FLAG_INHERIT, 0);
        startup.dwFlags = STARTF_USESTDHANDLES;
        startup.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
        startup.hStdOutput = write_end;
        startup.hStdError = GetStdHandle(STD_ERROR_HANDLE);
    }
    // Its own process group, so that request_stop() reaches it alone.
    const BOOL started =
        CreateProcessA(program.c_str(), line.data(), nullptr, nullptr, capture_output,
                       CREATE_NEW_PROCESS_GROUP, nullptr, nullptr, &startup, &impl_->process);
    const DWORD error = GetLastError();
    if (write_end) CloseHandle(write_end);
    if (!started) {
        if (impl_->output) CloseHandle(impl_->output);
        throw std::system_error(static_cast<int>(error), std::system_category(), program);
    }
    if (impl_->output) impl_->reader = std::thread([this] { impl_->read_loop(); });
}

child_process::~child_process() {
    if (!impl_->ended) {
        TerminateProcess(impl_->process.hProcess, 1);
        impl_->finish(INFINITE);
    }
    // The child is gone, so its end of the pipe is closed and the reader ends.
    if (impl_->reader.joinable()) impl_->reader.join();
    if (impl_->output) CloseHandle(impl_->output);
    CloseHandle(impl_->process.hThread);
    CloseHandle(impl_->process.hProcess);
}

process_id child_process::pid() const {
    return static_cast<process_id>(impl_->process.dwProcessId);
}

bool child_process::wait(std::chrono::milliseconds limit) {
    return impl_->finish(static_cast<DWORD>(std::max<long long>(0, limit.count())));
}

std::optional<int> child_process::exit_code() const {
    if (!impl_->ended) return std::nullopt;
    return static_cast<int>(impl_->code);
}

std::string child_process::describe() const {
    if (!impl_->ended) return "still running";
    return "exit " + std::to_string(impl_->code);
}

std::string child_process::output_line(std::chrono::milliseconds limit) {
    if (!impl_->output) return "";
    std::unique_lock lock(impl_->mutex);
    const bool complete = impl_->changed.wait_for(lock, limit, [&] {
        return impl_->pending.find('\n') != std::string::npos || impl_->output_ended;
    });
    const auto end = impl_->pending.find('\n');
    if (!complete || end == std::string::npos) return "";
    std::string text = impl_->pending.substr(0, end);
    impl_->pending.erase(0, end + 1);
    if (!text.empty() && text.back() == '\r') text.pop_back();
    return text;
}

std::string make_temp_file(const std::string &prefix, const std::string &suffix) {
    static std::atomic<unsigned> counter{0};
    const std::filesystem::path directory = std::filesystem::temp_directory_path();
    for (;;) {
        const std::string name = prefix + std::to_string(GetCurrentProcessId()) + "_" +
                                 std::to_string(counter++) + suffix;
        const std::filesystem::path path = directory / name;
        const HANDLE file = CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                                        FILE_ATTRIBUTE_NORMAL, nullptr);
        if (file != INVALID_HANDLE_VALUE) {
            CloseHandle(file);
            return path.generic_string();
        }
        if (GetLastError() != ERROR_FILE_EXISTS) throw_last_error("CreateFile " + path.string());
    }
}

bool file_is_open(const std::string &path) {
    const HANDLE file = CreateFileW(std::filesystem::path(path).c_str(), GENERIC_READ, 0, nullptr,
                                    OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file != INVALID_HANDLE_VALUE) {
        CloseHandle(file);
        return false;
    }
    return GetLastError() == ERROR_SHARING_VIOLATION;
}

} // namespace sim::net
