// SPDX-License-Identifier: MIT
// Files and JSON text as the tests compare them: read and written whole, printed the way the
// library prints the configuration files (formatted, tabs, member order kept).
#ifndef VASK_TEST_JSON_TEXT_H
#define VASK_TEST_JSON_TEXT_H

#include <cjson/cJSON.h>
#include <fstream>
#include <ostream>
#include <sstream>
#include <string>
#include <vector>

namespace vask_test {

inline std::string read_file(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

inline void write_file(const std::string &path, const std::string &text)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << text;
}

// `compact` JSON printed as the library prints the file; duplicate members kept as written. Empty
// when `compact` is not JSON, so that a typo in an expectation fails the comparison.
inline std::string formatted(const std::string &compact)
{
    cJSON *tree = cJSON_Parse(compact.c_str());
    if (tree == nullptr)
        return std::string();
    char *text = cJSON_Print(tree);
    std::string result = text != nullptr ? text : "";
    cJSON_free(text);
    cJSON_Delete(tree);
    return result;
}

// The formatted text of root member `name` of document `text`, or "<missing>".
inline std::string section_of(const std::string &text, const std::string &name)
{
    cJSON *tree = cJSON_Parse(text.c_str());
    const cJSON *section = cJSON_GetObjectItemCaseSensitive(tree, name.c_str());
    std::string result = "<missing>";
    if (section != nullptr) {
        char *printed = cJSON_Print(section);
        result = printed != nullptr ? printed : "";
        cJSON_free(printed);
    }
    cJSON_Delete(tree);
    return result;
}

// The names of the root members of document `text`, in order.
inline std::vector<std::string> section_names(const std::string &text)
{
    std::vector<std::string> names;
    cJSON *tree = cJSON_Parse(text.c_str());
    const cJSON *member = nullptr;
    cJSON_ArrayForEach(member, tree) names.push_back(member->string != nullptr ? member->string : "");
    cJSON_Delete(tree);
    return names;
}

// A log line reduced to what the tests compare exactly.
struct line_fields {
    int level;
    std::string source;
    int line;
    std::string function;
    std::string message;
    bool operator==(const line_fields &other) const
    {
        return level == other.level && source == other.source && line == other.line && function == other.function &&
               message == other.message;
    }
};

inline std::ostream &operator<<(std::ostream &out, const line_fields &l)
{
    return out << "{" << l.level << ", " << l.source << ":" << l.line << ", " << l.function << ", \"" << l.message
               << "\"}";
}

} // namespace vask_test

#endif
