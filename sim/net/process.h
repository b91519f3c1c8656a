// Processes and files for the simulator program and the tests: the process
// id, the stop request a console program answers (SIGINT and SIGTERM, or a
// console control event on Windows), a child process started with arguments
// and stopped by its id, and fresh temporary paths.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace sim::net {

using process_id = std::int64_t;

process_id current_process_id();

// Takes the stop requests of this process away from their default action.
// Construct it before starting any thread (on POSIX the threads inherit the
// blocked signals); it also stops a vanished reader of the output from
// ending the process (SIGPIPE).
class stop_requests {
  public:
    stop_requests();
    // Blocks until a stop request arrives; returns its name ("SIGINT",
    // "SIGTERM", "CTRL_C_EVENT", "CTRL_BREAK_EVENT", "CTRL_CLOSE_EVENT", or
    // "stop request" for one from request_stop() on Windows).
    std::string wait();
};

// Asks the process `id` to stop: SIGTERM; on Windows the stop event of a
// process waiting in stop_requests, else CTRL_BREAK_EVENT to its console
// process group (child_process starts each child in its own). False when
// the request could not be delivered.
bool request_stop(process_id id);

// A program run as a child: started with arguments, waited for with a limit,
// and stopped by its process id when it overstays.
class child_process {
  public:
    // Starts program with arguments (the program is the first word of the
    // command line). With `capture_output`, the child's standard output is
    // read through output_line(). Throws std::system_error when it cannot be
    // started.
    child_process(const std::string &program, const std::vector<std::string> &arguments,
                  bool capture_output = false);
    // Kills the child by its process id if it still runs, and reaps it.
    ~child_process();
    child_process(const child_process &) = delete;
    child_process &operator=(const child_process &) = delete;

    process_id pid() const;

    // Waits for the child to end. True when it ended within the limit.
    bool wait(std::chrono::milliseconds limit);
    // The exit code once the child has ended by exiting (not by a signal).
    std::optional<int> exit_code() const;
    // "exit 0", "exit 3", "signal 6 (Aborted)", "still running".
    std::string describe() const;
    // The next line the child wrote (without its line end), or "" when none
    // was complete within the limit or the output has ended.
    std::string output_line(std::chrono::milliseconds limit);

  private:
    struct impl;
    std::unique_ptr<impl> impl_;
};

// A new empty file in the temporary directory, named prefix, a unique part,
// then suffix; its path with '/' separators. Throws std::system_error.
std::string make_temp_file(const std::string &prefix, const std::string &suffix = "");

// True while the file at `path` is held open: by this process (its open
// descriptors), or on Windows by any process (the file cannot be opened
// without sharing).
bool file_is_open(const std::string &path);

} // namespace sim::net
