// A program run as a child of the test: started with arguments, waited for
// with a limit, and stopped by its process id when it overstays.
#pragma once

#include <chrono>
#include <string>
#include <sys/types.h>
#include <vector>

namespace ka_test {

class child_process {
  public:
    // Starts program with arguments (argv[0] is the program); throws
    // std::system_error when it cannot be started.
    child_process(const std::string &program, const std::vector<std::string> &arguments);
    // Stops the child by its process id if it still runs, and reaps it.
    ~child_process();
    child_process(const child_process &) = delete;
    child_process &operator=(const child_process &) = delete;

    pid_t pid() const { return pid_; }

    // Waits for the child to end. True when it ended within the limit; its
    // wait status is then in status().
    bool wait(std::chrono::milliseconds limit);
    int status() const { return status_; }
    // "exit 0", "exit 3", "signal 6 (Aborted)", "still running".
    std::string describe() const;

  private:
    pid_t pid_ = -1;
    int pidfd_ = -1;
    bool ended_ = false;
    int status_ = 0;
};

} // namespace ka_test
