// SPDX-License-Identifier: MIT
#include "api.h"

namespace console {

const std::vector<result_row> &result_table()
{
    static const std::vector<result_row> table = {
        {-1, op_kind::file, 500, "the configuration file is missing, unreadable or could not be written"},
        {-1, op_kind::service, 502,
         "the operation failed: the service refused it, or the configuration file or the bus failed"},
        {-2, op_kind::file, 400, "refused: bad arguments or an unsupported protocol"},
        {-2, op_kind::service, 400, "refused: bad arguments or an unsupported protocol"},
        {-3, op_kind::file, 503, "the external_device service is offline"},
        {-3, op_kind::service, 503, "the external_device service is offline"},
        {-4, op_kind::file, 504, "the external_device service did not answer in time"},
        {-4, op_kind::service, 504, "the external_device service did not answer in time"},
    };
    return table;
}

std::string api_request::query_value(const std::string &key) const
{
    auto found = query.find(key);
    return found != query.end() ? found->second : std::string();
}

namespace {

api_reply error_reply(int status, int code, const std::string &error)
{
    json_ptr body = json_object();
    cJSON_AddNumberToObject(body.get(), "code", code);
    cJSON_AddStringToObject(body.get(), "error", error.c_str());
    return api_reply{status, std::move(body)};
}

} // namespace

api_reply ok(json_ptr body)
{
    if (!body) {
        body = json_object();
        cJSON_AddNumberToObject(body.get(), "code", 0);
    }
    return api_reply{200, std::move(body)};
}

api_reply from_result(int code, op_kind kind, json_ptr body)
{
    if (code == 0)
        return ok(std::move(body));
    for (const result_row &row : result_table()) {
        if (row.code == code && row.kind == kind)
            return error_reply(row.status, code, row.error);
    }
    // The header promises -1 to -4 only; anything else is the library's fault, not the caller's.
    return error_reply(500, code, "unexpected result " + std::to_string(code));
}

api_reply bad_input(const problem &what) { return error_reply(400, -2, what); }

api_reply refusal(int status, const std::string &error) { return error_reply(status, -status, error); }

} // namespace console
