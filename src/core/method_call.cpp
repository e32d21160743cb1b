// SPDX-License-Identifier: MIT
// Calls of the "external_device" service and the mapping of their codes.
#include "core/method_call.h"

#include <cstring>
#include <stdexcept>
#include <unordered_map>

#include "core/internal.h"

namespace vask_ed {

int map_service_code(int code)
{
    if (code == 0)
        return 0;
    static const std::unordered_map<int, int> results{
        {BUS_ERR_TIMEOUT, -4},
        {BUS_ERR_FAILED, -1},
        {BUS_ERR_INVALID, -2},
        {BUS_ERR_NO_SERVICE, -3},
    };
    try {
        return results.at(code);
    } catch (const std::out_of_range &) {
        return -1;
    }
}

int ed_method_call(const char *method, cJSON *request, cJSON **reply)
{
    char buffer[BUS_REPLY_MAX];
    memset(buffer, 0, sizeof buffer);
    int reply_length = 0;

    json_text body;
    if (request != nullptr) {
        body.reset(cJSON_PrintUnformatted(request));
        if (!body)
            return -1; // out of memory: a request is never sent without its body
    }
    int code = bus_method_call_sync(current_client(), kServiceName, method, body.get(),
                                    body ? static_cast<int>(strlen(body.get())) : 0, buffer,
                                    &reply_length, kCallTimeoutS);
    return fold_reply(code, buffer, reply_length, reply);
}

int fold_reply(int code, const char *text, int length, cJSON **reply)
{
    if (length > 0) {
        code = -1;
        json_ptr document(cJSON_Parse(text));
        const cJSON *item = cJSON_GetObjectItem(document.get(), "code");
        if (item != nullptr)
            code = item->valueint;
        if (reply != nullptr)
            *reply = document.release();
    }
    return map_service_code(code);
}

} // namespace vask_ed
