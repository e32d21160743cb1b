// SPDX-License-Identifier: MIT
// Quoting a text as one word of a /bin/sh command line.
#ifndef VASK_ED_UTIL_SHELL_QUOTE_H
#define VASK_ED_UTIL_SHELL_QUOTE_H

#include <string>

namespace vask_ed {

// `text` as one shell word: in single quotes, each single quote inside written as '\''. Between
// single quotes the shell gives every other byte its literal meaning, so blanks, double quotes,
// ';', '$', '(', '`', '\' and newlines belong to the word and run nothing; an empty text gives ''.
// `text` must not hold a zero byte: the command would end there (callers refuse such a text).
// Throws std::bad_alloc when the word cannot be built.
std::string shell_quote(const std::string &text);

} // namespace vask_ed

#endif
