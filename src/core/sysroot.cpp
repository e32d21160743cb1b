// SPDX-License-Identifier: MIT
#include "core/sysroot.h"

#include <cstdlib>

namespace vask_ed {

std::string system_path(const char *fixed_path)
{
    const char *root = secure_getenv("VASK_SYSROOT");
    if (root == nullptr || *root == '\0')
        return fixed_path;
    std::string path = root;
    while (!path.empty() && path.back() == '/')
        path.pop_back();
    return path + fixed_path;
}

} // namespace vask_ed
