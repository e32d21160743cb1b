// SPDX-License-Identifier: MIT
// The one synchronous call of the "external_device" service.
#ifndef VASK_ED_CORE_METHOD_CALL_H
#define VASK_ED_CORE_METHOD_CALL_H

#include <cjson/cJSON.h>
#include <memory>

namespace vask_ed {

// Calls `method` with `request` printed unformatted (null: no body) and folds the reply's "code"
// (or the bus library's own failure when no reply text came back) into 0, -1, -2, -3 or -4.
// `request` stays the caller's. When `reply` is not null it receives the parsed reply document
// (null when none came back or it is not JSON; untouched when the reply was empty), which the caller
// frees with cJSON_Delete whatever the result.
int ed_method_call(const char *method, cJSON *request, cJSON **reply);

// The library result of a service or bus code.
int map_service_code(int code);

// The second half of ed_method_call: the result of a call that ended with bus code `code` and
// `length` bytes of zero-terminated reply `text`. Any reply text decides by its "code" (-1 when it
// has none or is not JSON); `reply` receives the parsed document as ed_method_call describes.
int fold_reply(int code, const char *text, int length, cJSON **reply);

// Hands `reply` (null when the reply was empty or not JSON) to `read` when `result` is 0, and
// frees it on every path. Returns `result`.
template <typename Read>
int read_reply(int result, cJSON *reply, Read read)
{
    std::unique_ptr<cJSON, void (*)(cJSON *)> owned(reply, cJSON_Delete);
    if (result == 0)
        read(static_cast<const cJSON *>(owned.get()));
    return result;
}

// Calls `method` with `request` and, when the call succeeds, hands the reply document to `read`
// (see read_reply). Returns the call's result.
template <typename Read>
int call_reading_reply(const char *method, cJSON *request, Read read)
{
    cJSON *reply = nullptr;
    int result = ed_method_call(method, request, &reply);
    return read_reply(result, reply, read);
}

} // namespace vask_ed

#endif
