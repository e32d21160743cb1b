// SPDX-License-Identifier: MIT
// The console device named on the kernel command line.
#include <cstring>
#include <exception>
#include <string>

#include "core/internal.h"
#include "rs232/file_pieces.h"

namespace vask_ed {
namespace {

constexpr const char *kConsoleKey = "console=";
constexpr size_t kConsoleNameMax = 16;

// The name after the first "console=" of a piece, or false. Kept as the service reads it: the piece
// is cut at its first comma, so an earlier option holding a comma hides a console named after it
// in the same piece; the name runs to the cut, the piece's end or 16 characters, blanks included.
bool console_in_piece(char *piece, std::string *name)
{
    char *comma = strchr(piece, ',');
    if (comma != nullptr)
        *comma = '\0';
    const char *key = strstr(piece, kConsoleKey);
    if (key == nullptr)
        return false;
    const char *value = key + strlen(kConsoleKey);
    name->assign(value, strnlen(value, kConsoleNameMax));
    return true;
}

} // namespace
} // namespace vask_ed

using namespace vask_ed;

ED_API std::string GetCmdlineConsoleName()
{
    try {
        std::string name;
        bool found = false;
        read_file_pieces("/proc/cmdline", "GetCmdlineConsoleName", __LINE__, [&](char *piece) {
            found = console_in_piece(piece, &name);
            return found;
        });
        if (found)
            TULO_LOG_write_newline(ED_LOG_MODULE, 2, kLogUtils, __LINE__, "GetCmdlineConsoleName", "%s %s",
                                   "GetCmdlineConsoleName", name.c_str());
        return name;
    } catch (const std::exception &) {
        return std::string();
    }
}
