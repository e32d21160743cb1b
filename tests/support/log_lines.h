// SPDX-License-Identifier: MIT
// Exact comparison of the log lines a test captured with the lines it expects.
#ifndef VASK_TEST_LOG_LINES_H
#define VASK_TEST_LOG_LINES_H

#include <gtest/gtest.h>
#include <vector>

#include "json_text.h"
#include "log_capture.h"

namespace vask_test {

// The expected line number of a line whose number is the source line of the library's code:
// matches any positive number.
constexpr int kAnyLine = -1;

// The captured lines as the tests compare them; each must carry the library's module, 59.
inline std::vector<line_fields> fields_of(const std::vector<log_line> &lines)
{
    std::vector<line_fields> result;
    for (const log_line &l : lines) {
        EXPECT_EQ(l.module, 59) << l.message;
        result.push_back({l.level, l.source, l.line, l.function, l.message});
    }
    return result;
}

// Every captured line equals the expected one, in order.
inline void expect_lines(const std::vector<log_line> &lines, std::vector<line_fields> expected)
{
    std::vector<line_fields> actual = fields_of(lines);
    for (size_t i = 0; i < expected.size() && i < actual.size(); ++i)
        if (expected[i].line == kAnyLine && actual[i].line > 0)
            expected[i].line = actual[i].line;
    EXPECT_EQ(actual, expected);
}

} // namespace vask_test

#endif
