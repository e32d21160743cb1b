// SPDX-License-Identifier: MIT
// Reading the descriptors a shell command listed with `ls -l /proc/<pid>/fd`.
#ifndef VASK_TEST_DESCRIPTOR_LISTING_H
#define VASK_TEST_DESCRIPTOR_LISTING_H

#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace vask_test {

// The entries of such a listing ("lrwx------ 1 root root 64 ... 3 -> /path"), in its order: the
// descriptor number and what it leads to. Lines without " -> " (the "total" line) are passed over.
inline std::vector<std::pair<int, std::string>> listed_descriptors(const std::string &listing)
{
    std::vector<std::pair<int, std::string>> found;
    std::istringstream lines(listing);
    std::string line;
    while (std::getline(lines, line)) {
        size_t arrow = line.find(" -> ");
        if (arrow == std::string::npos || arrow == 0)
            continue;
        size_t start = line.rfind(' ', arrow - 1);
        if (start == std::string::npos)
            continue;
        found.emplace_back(std::stoi(line.substr(start + 1, arrow - start - 1)), line.substr(arrow + 4));
    }
    return found;
}

} // namespace vask_test

#endif
