// SPDX-License-Identifier: MIT
// The box's files as the tools read them: a fixed path under the system root (VASK_SYSROOT, set by
// --root), read whole and parsed.
#ifndef VASK_TOOLS_BOX_FILES_H
#define VASK_TOOLS_BOX_FILES_H

#include <cjson/cJSON.h>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace vask_tools {

// `fixed_path` ("/etc/external_device.json") under the system root.
inline std::string box_path(const char *fixed_path)
{
    const char *root = getenv("VASK_SYSROOT");
    return std::string(root != nullptr ? root : "") + fixed_path;
}

// The parsed document of the box file at `fixed_path`; null when it cannot be read or is not JSON.
// The caller deletes it.
inline cJSON *read_box_json(const char *fixed_path)
{
    FILE *file = fopen(box_path(fixed_path).c_str(), "rbe");
    if (file == nullptr)
        return nullptr;
    std::string text;
    char buffer[4096];
    size_t n;
    while ((n = fread(buffer, 1, sizeof buffer, file)) > 0)
        text.append(buffer, n);
    fclose(file);
    return cJSON_Parse(text.c_str());
}

} // namespace vask_tools

#endif
