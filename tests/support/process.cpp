// SPDX-License-Identifier: MIT
#include "process.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

extern char **environ;

namespace vask_test {

temp_dir::temp_dir()
{
    const char *base = getenv("TMPDIR");
    std::string pattern = std::string(base != nullptr && *base != '\0' ? base : "/tmp") + "/vask-test-XXXXXX";
    std::vector<char> buffer(pattern.begin(), pattern.end());
    buffer.push_back('\0');
    if (mkdtemp(buffer.data()) == nullptr)
        abort();
    path_ = buffer.data();
}

temp_dir::~temp_dir()
{
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

child_process::~child_process()
{
    stop(SIGKILL, std::chrono::seconds(5));
}

bool child_process::start(const std::vector<std::string> &argv, const std::vector<std::string> &extra_env,
                          const std::string &stderr_file)
{
    int pipe_fds[2];
    if (pipe2(pipe_fds, O_CLOEXEC) != 0)
        return false;
    std::vector<std::string> env_strings;
    for (char **e = environ; *e != nullptr; ++e)
        env_strings.emplace_back(*e);
    for (const std::string &extra : extra_env) {
        std::string name = extra.substr(0, extra.find('=') + 1);
        for (auto it = env_strings.begin(); it != env_strings.end();)
            it = it->compare(0, name.size(), name) == 0 ? env_strings.erase(it) : it + 1;
        env_strings.push_back(extra);
    }
    std::vector<char *> env;
    for (std::string &s : env_strings)
        env.push_back(&s[0]);
    env.push_back(nullptr);
    std::vector<std::string> args = argv;
    std::vector<char *> arg_ptrs;
    for (std::string &s : args)
        arg_ptrs.push_back(&s[0]);
    arg_ptrs.push_back(nullptr);
    pid_t parent = getpid();

    pid_t pid = fork();
    if (pid == 0) {
        // Only async-signal-safe calls until exec. A test that crashes must not leave its broker or
        // simulator running: the child dies with the parent.
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != parent)
            _exit(127);
        dup2(pipe_fds[1], STDOUT_FILENO);
        if (!stderr_file.empty()) {
            // Close-on-exec, and closed once duplicated: the program gets it as stderr only.
            int err = open(stderr_file.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
            if (err >= 0 && err != STDERR_FILENO) {
                dup2(err, STDERR_FILENO);
                close(err);
            }
        }
        execve(arg_ptrs[0], arg_ptrs.data(), env.data());
        _exit(127);
    }
    close(pipe_fds[1]);
    if (pid < 0) {
        close(pipe_fds[0]);
        return false;
    }
    pid_ = pid;
    stdout_fd_ = pipe_fds[0];
    output_.clear();
    scanned_ = 0;
    return true;
}

bool child_process::wait_for_line(const std::string &line, std::chrono::milliseconds timeout)
{
    auto deadline = std::chrono::steady_clock::now() + timeout;
    for (;;) {
        size_t end;
        while ((end = output_.find('\n', scanned_)) != std::string::npos) {
            bool match = output_.compare(scanned_, end - scanned_, line) == 0 && end - scanned_ == line.size();
            scanned_ = end + 1;
            if (match)
                return true;
        }
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0 || stdout_fd_ < 0)
            return false;
        pollfd p{stdout_fd_, POLLIN, 0};
        if (poll(&p, 1, static_cast<int>(left.count())) <= 0)
            return false;
        char buffer[4096];
        ssize_t n = read(stdout_fd_, buffer, sizeof buffer);
        if (n <= 0)
            return false;
        output_.append(buffer, static_cast<size_t>(n));
    }
}

bool child_process::running()
{
    if (pid_ <= 0)
        return false;
    int status = 0;
    return waitpid(pid_, &status, WNOHANG) == 0;
}

int child_process::stop(int signal, std::chrono::milliseconds timeout)
{
    if (pid_ <= 0)
        return -1;
    kill(pid_, signal);
    int status = 0;
    bool exited = eventually([&] { return waitpid(pid_, &status, WNOHANG) == pid_; }, timeout);
    if (!exited) {
        kill(pid_, SIGKILL);
        waitpid(pid_, &status, 0);
    }
    pid_ = -1;
    if (stdout_fd_ >= 0) {
        close(stdout_fd_);
        stdout_fd_ = -1;
    }
    return status;
}

run_result run_program(const std::vector<std::string> &argv, const std::vector<std::string> &extra_env,
                       std::chrono::milliseconds timeout)
{
    run_result result;
    temp_dir dir;
    std::string err_file = dir.path() + "/stderr";
    child_process child;
    if (!child.start(argv, extra_env, err_file))
        return result;
    // Read all of standard output; a marker that never comes makes wait_for_line read to the end.
    child.wait_for_line("\x01 never printed \x01", timeout);
    result.out = child.output();
    int status = child.stop(0, std::chrono::seconds(5));
    if (WIFEXITED(status))
        result.exit_code = WEXITSTATUS(status);
    FILE *f = fopen(err_file.c_str(), "r");
    if (f != nullptr) {
        char buffer[4096];
        size_t n;
        while ((n = fread(buffer, 1, sizeof buffer, f)) > 0)
            result.err.append(buffer, n);
        fclose(f);
    }
    return result;
}

} // namespace vask_test
