// SPDX-License-Identifier: MIT
// Quoting a text as one word of a /bin/sh command line.
#include "util/shell_quote.h"

namespace vask_ed {

std::string shell_quote(const std::string &text)
{
    std::string quoted = "'";
    for (char c : text) {
        // A single quote cannot stand inside single quotes: close them, add an escaped quote, reopen.
        if (c == '\'')
            quoted += "'\\''";
        else
            quoted += c;
    }
    return quoted + "'";
}

} // namespace vask_ed
