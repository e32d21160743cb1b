// The one synchronous call of the "external_device" service.
#ifndef VASK_ED_CORE_METHOD_CALL_H
#define VASK_ED_CORE_METHOD_CALL_H

#include <cjson/cJSON.h>

namespace vask_ed {

// Calls `method` with `request` printed unformatted (null: no body) and folds the reply's "code"
// (or the bus library's own failure when no reply text came back) into 0, -1, -2, -3 or -4.
// `request` stays the caller's. When `reply` is not null it receives the parsed reply document
// (null when none came back or it is not JSON; untouched when the reply was empty), which the caller
// frees with cJSON_Delete whatever the result.
int ed_method_call(const char *method, cJSON *request, cJSON **reply);

// The library result of a service or bus code.
int map_service_code(int code);

} // namespace vask_ed

#endif
