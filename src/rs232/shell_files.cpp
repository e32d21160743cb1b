// SPDX-License-Identifier: MIT
// Copying and removing whole trees with the shell's cp and rm.
#include <exception>
#include <initializer_list>
#include <string>
#include <sys/stat.h>

#include "core/internal.h"
#include "util/shell_command.h"
#include "util/shell_quote.h"

namespace vask_ed {
namespace {

// Runs `program -rf -- <paths>` as system() does (run_shell) when the first path exists. Returns
// system()'s result; 0 when nothing is there (nothing is run); -1 when a path holds a zero byte (it would cut
// the command short, and names no file) or the command cannot be built.
int run_on_existing(const char *program, std::initializer_list<const std::string *> paths)
{
    try {
        std::string command = program;
        // "--": a path starting with '-' is a path, not an option.
        command += " -rf --";
        for (const std::string *path : paths) {
            if (path->find('\0') != std::string::npos)
                return -1;
            command += " " + shell_quote(*path);
        }
        struct stat info;
        if (stat((*paths.begin())->c_str(), &info) != 0)
            return 0;
        return run_shell(command);
    } catch (const std::exception &) {
        return -1;
    }
}

} // namespace
} // namespace vask_ed

using namespace vask_ed;

ED_API int Copy(const std::string &from, const std::string &to)
{
    int result = run_on_existing("cp", {&from, &to});
    if (result < 0)
        TULO_LOG_write_newline(ED_LOG_MODULE, 1, kLogUtils, __LINE__, "Copy", "Failed to copy %s to %s (%d)",
                               from.c_str(), to.c_str(), result);
    return result;
}

ED_API int RemoveAll(const std::string &path)
{
    int result = run_on_existing("rm", {&path});
    if (result < 0)
        TULO_LOG_write_newline(ED_LOG_MODULE, 1, kLogUtils, __LINE__, "RemoveAll", "Failed to remove %s (%d)",
                               path.c_str(), result);
    return result;
}
