// SPDX-License-Identifier: MIT
// The console's JSON: cJSON documents owned by one unique_ptr each, and the few readers and writers
// the request handlers share.
#ifndef VASK_CONSOLE_JSON_H
#define VASK_CONSOLE_JSON_H

#include <cjson/cJSON.h>
#include <cstdlib>
#include <memory>
#include <string>

namespace console {

struct json_deleter {
    void operator()(cJSON *node) const { cJSON_Delete(node); }
};
using json_ptr = std::unique_ptr<cJSON, json_deleter>;

struct text_deleter {
    void operator()(char *text) const { std::free(text); }
};
using text_ptr = std::unique_ptr<char, text_deleter>;

inline json_ptr json_object() { return json_ptr(cJSON_CreateObject()); }

// The compact text of `node` ("null" when it cannot be printed).
inline std::string json_text(const cJSON *node)
{
    text_ptr text(cJSON_PrintUnformatted(node));
    return text ? std::string(text.get()) : std::string("null");
}

// Why a request body was refused: empty when it was good.
using problem = std::string;

// Reads member `key` of `object` into `out`. `required` members that are missing give a problem;
// a member of the wrong type always does. Strings, integers (whole numbers that fit an int) and
// booleans.
problem read_string(const cJSON *object, const char *key, std::string &out, bool required);
problem read_int(const cJSON *object, const char *key, int &out, bool required);
problem read_bool(const cJSON *object, const char *key, bool &out, bool required);

// The problem of the first member of `object` whose name is not in the null-terminated `known`
// list, so that a misspelt key is not silently ignored.
problem unknown_member(const cJSON *object, const char *const *known);

} // namespace console

#endif
