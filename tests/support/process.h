// SPDX-License-Identifier: MIT
// Child processes owned by a test: started from a path, stopped by pid, their exit checked.
#ifndef VASK_TEST_PROCESS_H
#define VASK_TEST_PROCESS_H

#include <chrono>
#include <string>
#include <sys/types.h>
#include <vector>

namespace vask_test {

// A fresh directory under TMPDIR (or /tmp), removed with its contents on destruction.
class temp_dir {
public:
    temp_dir();
    ~temp_dir();
    temp_dir(const temp_dir &) = delete;
    temp_dir &operator=(const temp_dir &) = delete;
    const std::string &path() const { return path_; }

private:
    std::string path_;
};

class child_process {
public:
    child_process() = default;
    ~child_process();
    child_process(const child_process &) = delete;
    child_process &operator=(const child_process &) = delete;

    // Starts argv[0] with `argv`; `extra_env` entries ("NAME=value") are added to the environment.
    // Standard output goes to a pipe readable with wait_for_line(); standard error to `stderr_file`
    // (inherited when empty). Returns false when the program cannot be started.
    bool start(const std::vector<std::string> &argv, const std::vector<std::string> &extra_env = {},
               const std::string &stderr_file = std::string());

    // Reads standard output until a line equal to `line` arrives; false on end of output or timeout.
    bool wait_for_line(const std::string &line, std::chrono::milliseconds timeout);

    bool running();
    pid_t pid() const { return pid_; }

    // Sends `signal` and waits for the exit (SIGKILL after `timeout`); returns the wait status,
    // or -1 when there was no child.
    int stop(int signal, std::chrono::milliseconds timeout = std::chrono::seconds(5));

    // What the child wrote to standard output so far (lines read by wait_for_line included).
    const std::string &output() const { return output_; }

private:
    pid_t pid_ = -1;
    int stdout_fd_ = -1;
    std::string output_;
    size_t scanned_ = 0;
};

// Runs a program to its end and returns its exit code (-1 when it did not exit normally), with its
// standard output and standard error.
struct run_result {
    int exit_code = -1;
    std::string out;
    std::string err;
};
// The exit code and both outputs, for a failure message.
inline std::string describe(const run_result &r)
{
    return "exit " + std::to_string(r.exit_code) + "\nstdout:\n" + r.out + "\nstderr:\n" + r.err;
}
run_result run_program(const std::vector<std::string> &argv, const std::vector<std::string> &extra_env = {},
                       std::chrono::milliseconds timeout = std::chrono::seconds(30));

// Waits until `predicate` holds, checking every 10 ms, at most `timeout`.
template <typename Predicate>
bool eventually(Predicate predicate, std::chrono::milliseconds timeout = std::chrono::seconds(10))
{
    auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!predicate()) {
        if (std::chrono::steady_clock::now() >= deadline)
            return false;
        struct timespec pause = {0, 10 * 1000 * 1000};
        nanosleep(&pause, nullptr);
    }
    return true;
}

} // namespace vask_test

#endif
