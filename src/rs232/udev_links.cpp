// SPDX-License-Identifier: MIT
// The box's own serial devices: the links its udev rules create under /dev, the devices behind
// them (the ignore list) and the search of that list.
#include <cstdlib>
#include <exception>
#include <string>
#include <sys/stat.h>
#include <sys/types.h>
#include <vector>

#include "config/config_cycle.h"
#include "rs232/file_pieces.h"

namespace vask_ed {
namespace {

constexpr const char *kDevPrefix = "/dev/";

// The link named by a field that holds "SYMLINK": the text between its first and its last double
// quote; without an opening quote from the field's start, without a closing one to its end.
std::string quoted_link(const std::string &field)
{
    size_t first = field.find('"');
    size_t last = field.rfind('"');
    size_t start = first == std::string::npos ? 0 : first + 1;
    size_t end = last == std::string::npos || last < start ? field.size() : last;
    return field.substr(start, end - start);
}

// Appends the links of one rules line. Kept: comment lines count as well, and a value naming
// several links gives one entry holding the blanks; the service reads the list this way.
void append_line_links(const std::string &line, std::vector<std::string> *links)
{
    std::vector<std::string> fields;
    StringSplit(line, ",", fields);
    for (const std::string &field : fields)
        if (field.find("SYMLINK") != std::string::npos)
            links->push_back(kDevPrefix + quoted_link(field));
}

// The buffer that getline grows, freed whatever happens.
struct line_buffer {
    char *text = nullptr;
    size_t capacity = 0;
    line_buffer() = default;
    line_buffer(const line_buffer &) = delete;
    line_buffer &operator=(const line_buffer &) = delete;
    ~line_buffer() { free(text); }
};

// A folder opens for reading but is no rules file.
file_ptr open_rules(const std::string &rules_path)
{
    file_ptr file(fopen(rules_path.c_str(), "re"));
    struct stat info;
    if (file && (fstat(fileno(file.get()), &info) != 0 || S_ISDIR(info.st_mode)))
        file.reset();
    return file;
}

int read_rules_links(const std::string &rules_path, std::vector<std::string> *symlink_list)
{
    config_lock_guard hold;
    file_ptr file = open_rules(rules_path);
    TULO_LOG_write_newline(ED_LOG_MODULE, 2, kLogUtils, __LINE__, "ReadUdevRulesSYMLINK", "Read UdevRulesSYMLINK");
    if (!file) {
        TULO_LOG_write_newline(ED_LOG_MODULE, 0, kLogUtils, __LINE__, "ReadUdevRulesSYMLINK",
                               "open rules file failed");
        return -1;
    }
    if (symlink_list == nullptr) {
        TULO_LOG_write_newline(ED_LOG_MODULE, 0, kLogUtils, __LINE__, "ReadUdevRulesSYMLINK", "symlink_list failed");
        return -1;
    }
    // Collected apart, so that a failure part-way leaves the caller's list as it was.
    std::vector<std::string> links;
    line_buffer line;
    ssize_t length;
    while ((length = getline(&line.text, &line.capacity, file.get())) >= 0)
        append_line_links(std::string(line.text, static_cast<size_t>(length)), &links);
    if (ferror(file.get())) {
        TULO_LOG_write_newline(ED_LOG_MODULE, 0, kLogUtils, __LINE__, "ReadUdevRulesSYMLINK",
                               "read rules file failed");
        return -1;
    }
    symlink_list->swap(links);
    return 0;
}

int resolve_links(const std::vector<std::string> &links, std::vector<std::string> *usbtty_list)
{
    std::vector<std::string> devices;
    for (const std::string &link : links) {
        // A link that is absent now, or dangling, names no device of the box.
        malloc_text resolved(realpath(link.c_str(), nullptr));
        if (!resolved)
            continue;
        std::string name = resolved.get();
        EraseSubStr(name, kDevPrefix);
        TULO_LOG_write_newline(ED_LOG_MODULE, 2, kLogUtils, __LINE__, "ChecksSYMLINKandGetDevice", "udev Ignored [%s]",
                               name.c_str());
        devices.push_back(std::move(name));
    }
    usbtty_list->swap(devices);
    return 0;
}

} // namespace
} // namespace vask_ed

using namespace vask_ed;

ED_API int StringSplit(const std::string &text, const std::string &separator, std::vector<std::string> &pieces)
{
    try {
        // A copy: `text` may be one of the pieces that are cleared below.
        const std::string whole = text;
        pieces.clear();
        // Kept: the first search matches any one character of the separator, later ones the whole
        // separator; with the one-character separators the library uses, both are the same.
        size_t start = 0;
        size_t at = whole.find_first_of(separator);
        while (at != std::string::npos) {
            pieces.push_back(whole.substr(start, at - start));
            start = at + separator.size();
            at = whole.find(separator, start);
        }
        if (start < whole.size())
            pieces.push_back(whole.substr(start));
        return 0;
    } catch (const std::exception &) {
        return -1;
    }
}

ED_API int ReadUdevRulesSYMLINK(std::string rules_path, std::vector<std::string> *symlink_list)
{
    try {
        return read_rules_links(rules_path, symlink_list);
    } catch (const std::exception &) {
        return -1;
    }
}

ED_API int ChecksSYMLINKandGetDevice(std::vector<std::string> *symlink_list, std::vector<std::string> *usbtty_list)
{
    try {
        config_lock_guard hold;
        if (symlink_list == nullptr) {
            TULO_LOG_write_newline(ED_LOG_MODULE, 0, kLogUtils, __LINE__, "ChecksSYMLINKandGetDevice",
                                   "symlink_list failed");
            return -1;
        }
        if (usbtty_list == nullptr) {
            TULO_LOG_write_newline(ED_LOG_MODULE, 0, kLogUtils, __LINE__, "ChecksSYMLINKandGetDevice",
                                   "usbtty_list failed");
            return -1;
        }
        return resolve_links(*symlink_list, usbtty_list);
    } catch (const std::exception &) {
        return -1;
    }
}

ED_API int CompareUdevIgnoreLists(std::string name, std::vector<std::string> *ignored_list)
{
    config_lock_guard hold;
    if (ignored_list == nullptr) {
        TULO_LOG_write_newline(ED_LOG_MODULE, 0, kLogUtils, __LINE__, "CompareUdevIgnoreLists", "Ignored_List failed");
        return 0;
    }
    for (const std::string &ignored : *ignored_list)
        if (ignored == name)
            return 1;
    return 0;
}
