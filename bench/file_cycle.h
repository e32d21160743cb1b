// SPDX-License-Identifier: MIT
// The bare cJSON cycles on a configuration file that the configuration benchmarks measure the
// library's operations against: no locks, no checks, no logging, just the file and cJSON.
#ifndef VASK_BENCH_FILE_CYCLE_H
#define VASK_BENCH_FILE_CYCLE_H

#include <cjson/cJSON.h>
#include <fcntl.h>
#include <string>
#include <unistd.h>

#include "json_text.h"

namespace vask_bench {

// How the bare cycle puts the printed text back.
enum class write_mode {
    // Over the old text in the same file: the least any writer can do.
    in_place,
    // A new file beside it, flushed to disk, renamed over the old one, the folder flushed: what a
    // writer does that must leave either the old or the new file after a crash.
    replace,
};

inline bool write_text(const std::string &path, const std::string &text, write_mode mode)
{
    // In place the old file is overwritten and cut to the new length rather than truncated first:
    // a file emptied and written again is flushed on close by ext4, which would make this floor
    // pay for a flush it does not ask for.
    std::string target = mode == write_mode::replace ? path + ".bench-tmp" : path;
    int flags = O_WRONLY | O_CREAT | O_CLOEXEC | (mode == write_mode::replace ? O_TRUNC : 0);
    int fd = ::open(target.c_str(), flags, 0644);
    if (fd < 0)
        return false;
    bool ok = ::pwrite(fd, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size()) &&
              ::ftruncate(fd, static_cast<off_t>(text.size())) == 0;
    if (mode == write_mode::replace)
        ok = ok && fsync(fd) == 0;
    ok = ::close(fd) == 0 && ok;
    if (mode == write_mode::in_place || !ok)
        return ok;
    if (::rename(target.c_str(), path.c_str()) != 0)
        return false;
    int folder = ::open(path.substr(0, path.rfind('/')).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (folder < 0)
        return false;
    fsync(folder);
    ::close(folder);
    return true;
}

// Reads and parses the file, hands the document to `use`, frees it. False when the file is not JSON.
template <typename Use>
bool bare_read(const std::string &path, Use &&use)
{
    cJSON *root = cJSON_Parse(vask_test::read_file(path).c_str());
    if (root == nullptr)
        return false;
    use(root);
    cJSON_Delete(root);
    return true;
}

// Reads, parses, lets `edit` change a member, prints formatted (as the library prints the file) and
// writes the text back. False on any failure.
template <typename Edit>
bool bare_cycle(const std::string &path, write_mode mode, Edit &&edit)
{
    std::string text;
    bool parsed = bare_read(path, [&](cJSON *root) {
        edit(root);
        char *printed = cJSON_Print(root);
        if (printed != nullptr)
            text = printed;
        cJSON_free(printed);
    });
    return parsed && !text.empty() && write_text(path, text, mode);
}

// Replaces string member `key` of `object` with `value`, in place.
inline void set_string(cJSON *object, const char *key, const char *value)
{
    cJSON_ReplaceItemInObjectCaseSensitive(object, key, cJSON_CreateString(value));
}

} // namespace vask_bench

#endif
