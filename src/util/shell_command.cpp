// SPDX-License-Identifier: MIT
// Starting "/bin/sh -c" with posix_spawn, with every descriptor above the standard streams closed.
#include "util/shell_command.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "core/internal.h"

extern char **environ;

namespace vask_ed {
namespace {

constexpr const char *kShell = "/bin/sh";

class spawn_actions {
public:
    spawn_actions() : ready_(posix_spawn_file_actions_init(&actions_) == 0) {}
    ~spawn_actions()
    {
        if (ready_)
            posix_spawn_file_actions_destroy(&actions_);
    }
    spawn_actions(const spawn_actions &) = delete;
    spawn_actions &operator=(const spawn_actions &) = delete;
    bool ready() const { return ready_; }
    posix_spawn_file_actions_t *get() { return &actions_; }

private:
    posix_spawn_file_actions_t actions_;
    bool ready_;
};

// Starts the shell with `standard_output` (when not -1) as its standard output. The child's pid, or
// -1 with errno set.
pid_t start_shell(const std::string &command, int standard_output)
{
    spawn_actions actions;
    if (!actions.ready()) {
        errno = ENOMEM;
        return -1;
    }
    int error = 0;
    if (standard_output >= 0)
        error = posix_spawn_file_actions_adddup2(actions.get(), standard_output, STDOUT_FILENO);
    // Close-on-exec is not enough: a descriptor the application opened without it, or one opened
    // by another thread between its open and its fcntl, would reach the command.
    if (error == 0)
        error = posix_spawn_file_actions_addclosefrom_np(actions.get(), STDERR_FILENO + 1);
    // "--": a command that starts with '-' is a command, not an option of the shell.
    char *argv[] = {const_cast<char *>("sh"), const_cast<char *>("-c"), const_cast<char *>("--"),
                    const_cast<char *>(command.c_str()), nullptr};
    pid_t pid = -1;
    if (error == 0)
        error = posix_spawn(&pid, kShell, actions.get(), nullptr, argv, environ);
    if (error != 0) {
        errno = error;
        return -1;
    }
    return pid;
}

// Owns a started child until its status is collected; a child that is not waited for explicitly
// (an exception) is waited for on destruction, so that none is left as a zombie.
class child_process {
public:
    explicit child_process(pid_t pid) : pid_(pid) {}
    ~child_process()
    {
        if (pid_ > 0)
            wait();
    }
    child_process(const child_process &) = delete;
    child_process &operator=(const child_process &) = delete;

    // The wait status, or -1 with errno set.
    int wait()
    {
        pid_t pid = pid_;
        pid_ = -1;
        int status = 0;
        while (waitpid(pid, &status, 0) < 0)
            if (errno != EINTR)
                return -1;
        return status;
    }

private:
    pid_t pid_;
};

} // namespace

int run_shell(const std::string &command)
{
    pid_t pid = start_shell(command, -1);
    if (pid < 0)
        return -1;
    return child_process(pid).wait();
}

int run_shell_reading(const std::string &command, std::string *output)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        return -1;
    pid_t pid = start_shell(command, ends[1]);
    int error = errno;
    ::close(ends[1]);
    if (pid < 0) {
        ::close(ends[0]);
        errno = error;
        return -1;
    }
    child_process child(pid);
    // Declared after the child: when an exception leaves, the pipe is closed before the child is
    // waited for, so that a command still writing ends (SIGPIPE) instead of blocking.
    file_ptr pipe(fdopen(ends[0], "r"));
    if (!pipe) {
        // Without a reader the command ends on its first write; its status says nothing of it.
        ::close(ends[0]);
        child.wait();
        return -1;
    }
    char buffer[512];
    while (fgets(buffer, sizeof buffer, pipe.get()) != nullptr)
        if (output != nullptr)
            output->append(buffer);
    pipe.reset();
    return child.wait();
}

} // namespace vask_ed
