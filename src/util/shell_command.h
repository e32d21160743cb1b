// SPDX-License-Identifier: MIT
// Shell commands of the library, started with nothing of the process but its standard streams.
#ifndef VASK_ED_UTIL_SHELL_COMMAND_H
#define VASK_ED_UTIL_SHELL_COMMAND_H

#include <string>

namespace vask_ed {

// Runs `command` with "/bin/sh -c" as system(3) does, and waits for it. The shell inherits the
// process's standard streams, environment, signal mask and dispositions, and no other descriptor:
// every descriptor above 2 is closed before the shell starts, with or without close-on-exec, so
// that no bus socket, lock file or descriptor of the application reaches the command.
// Returns the wait status (the exit code times 256 for a normal exit), or -1 with errno set when no
// shell can be started or its status cannot be collected (ECHILD: SIGCHLD is ignored).
int run_shell(const std::string &command);

// The same as popen(3) and pclose(3): the command's standard output goes to a pipe, read to its end
// as text in pieces of at most 511 bytes, each appended up to its first zero byte to *output (a
// null `output` discards them). Same results. Throws std::bad_alloc when *output cannot grow; the
// pipe is closed and the child waited for all the same.
int run_shell_reading(const std::string &command, std::string *output);

} // namespace vask_ed

#endif
