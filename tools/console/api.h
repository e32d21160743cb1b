// SPDX-License-Identifier: MIT
// The JSON API as a table of routes: each handler turns one request into one library operation and
// its result into a reply. The HTTP server (server.cpp) walks the tables; it knows no operation.
#ifndef VASK_CONSOLE_API_H
#define VASK_CONSOLE_API_H

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "json.h"

namespace console {

// What an operation touches, which decides what its -1 means (see result_table).
enum class op_kind {
    file,    // reads or writes the box's configuration files only
    service, // calls the external_device service (setters store first, then call)
};

struct api_request {
    const cJSON *body = nullptr;               // the JSON object sent, or nullptr for none
    std::vector<std::string> params;           // the captures of the route's pattern, decoded
    std::multimap<std::string, std::string> query;
    std::string param(size_t index) const { return index < params.size() ? params[index] : std::string(); }
    std::string query_value(const std::string &key) const;
};

struct api_reply {
    int status = 200;
    json_ptr body;
};

// One row of the result table: the library's result `code` for an operation of `kind` answers
// HTTP `status` with {"code": code, "error": error}.
struct result_row {
    int code;
    op_kind kind;
    int status;
    const char *error;
};
// Every row, in the order of the table in docs/console.md.
const std::vector<result_row> &result_table();

// 200 with `body`, or with {"code":0} when `body` is null.
api_reply ok(json_ptr body = nullptr);
// The reply for library result `code` of an operation of `kind`: ok(body) for 0, else the table's row.
api_reply from_result(int code, op_kind kind, json_ptr body = nullptr);
// 400 {"code":-2,"error":what} for a request the console refuses before calling the library.
api_reply bad_input(const problem &what);
// The console's own refusals: HTTP `status` with {"code":-status,"error":error}.
api_reply refusal(int status, const std::string &error);

using api_handler = std::function<api_reply(const api_request &)>;

struct api_route {
    const char *method;  // "GET", "POST", "PUT", "DELETE"
    const char *pattern; // a regular expression over the decoded path
    api_handler handler;
};

// The route families, each in the file of its name.
std::vector<api_route> service_routes();   // voting, microphones on, mic central test, RS232 devices, image share
std::vector<api_route> settings_routes();  // mic central, media station, projector, TCP control, RS232 control
std::vector<api_route> mic_control_routes(); // microphone control items, group conflicts, modes
std::vector<api_route> zorvo_routes();     // the remote controller and config validate

} // namespace console

#endif
