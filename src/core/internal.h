// SPDX-License-Identifier: MIT
// Internal pieces of the library shared by its subsystems.
#ifndef VASK_ED_CORE_INTERNAL_H
#define VASK_ED_CORE_INTERNAL_H

#include <cjson/cJSON.h>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "libvask_external_device.h"
#include "tulo_log.h"
#include "vask_bus.h"

namespace vask_ed {

// Source names of the library's log lines.
constexpr const char *kLogLibrary = "libvask_external_device";
constexpr const char *kLogUtils = "utils";

// The name of the box's service and of the library's bus client.
constexpr const char *kServiceName = "external_device";
constexpr const char *kClientName = "libvaskexternal_device";
// Seconds a service call waits for its reply.
constexpr int kCallTimeoutS = 8;

struct json_deleter {
    void operator()(cJSON *json) const { cJSON_Delete(json); }
};
struct text_deleter {
    void operator()(char *text) const { cJSON_free(text); }
};
struct file_closer {
    void operator()(FILE *file) const { fclose(file); }
};
// A cJSON tree, a text printed by cJSON and a file opened with fopen, each freed by its owner.
using json_ptr = std::unique_ptr<cJSON, json_deleter>;
using json_text = std::unique_ptr<char, text_deleter>;
using file_ptr = std::unique_ptr<FILE, file_closer>;

// The bus client opened by ed_init; null while the library is closed.
bus_client *current_client();

// The value of an option; an absent option is inserted with 0 and read as 0.
int option_value(int option);

} // namespace vask_ed

#endif
