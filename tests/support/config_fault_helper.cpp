// SPDX-License-Identifier: MIT
// Runs one configuration function of the library in a process of its own, with the fault shim
// linked in (see fault_shim.c), and prints its result and the library's log lines:
//   result <n>
//   log <level>|<source>|<line>|<function>|<message>
// The system root comes from VASK_SYSROOT, the broker from VASK_BUS_URL, the faults from VASK_FAULT.
#include <cstdio>
#include <cstring>
#include <functional>
#include <map>
#include <string>

#include "libvask_external_device.h"
#include "tulo_log.h"

namespace {

// Only the library's own lines (module 59): the bus library logs its connection too.
void print_line(void *, int module, int level, const char *source, int line, const char *function,
                const char *message)
{
    if (module != ED_LOG_MODULE)
        return;
    printf("log %d|%s|%d|%s|%s\n", level, source, line, function, message);
}

// Operations that tell the service open the library around the call.
int with_bus(const std::function<int()> &operation)
{
    ed_init();
    int result = operation();
    ed_release();
    return result;
}

const std::map<std::string, std::function<int()>> kOperations = {
    {"settings",
     [] {
         return UpdateControlDeviceSettings("miccentral_control", true, "shure-tcp", "4001", "192.0.2.10", "secret", "",
                                            "admin");
     }},
    {"read",
     [] {
         external_protocol_info info{};
         return ReadControlDeviceConfig("miccentral_control", &info);
     }},
    {"set_mic",
     [] {
         return with_bus([] {
             return ed_set_mic_central_info({true, 2, "192.0.2.10", "admin", "secret", "", "4001"});
         });
     }},
    {"set_pjlink", [] { return with_bus([] { return ed_set_pjlink_settings("192.0.2.20", "projector"); }); }},
    {"set_none", [] { return with_bus([] { return ed_set_none_settings(); }); }},
};

} // namespace

int main(int argc, char **argv)
{
    setvbuf(stdout, nullptr, _IOLBF, 0);
    if (argc != 2 || kOperations.count(argv[1]) == 0) {
        fprintf(stderr, "usage: config_fault_helper settings|read|set_mic|set_pjlink|set_none\n");
        return 2;
    }
    TULO_LOG_set_level(TULO_LOG_LEVEL_TRACE);
    TULO_LOG_set_sink(print_line, nullptr);
    int result = kOperations.at(argv[1])();
    TULO_LOG_set_sink(nullptr, nullptr);
    printf("result %d\n", result);
    return 0;
}
