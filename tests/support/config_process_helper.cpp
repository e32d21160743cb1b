// SPDX-License-Identifier: MIT
// A writer of the configuration file in a process of its own, for the tests of several processes
// on one file. The system root comes from VASK_SYSROOT.
//   write <section> <count> <go-file>: prints "ready", waits (bounded) until <go-file> exists, then
//     writes the values 1 to <count> into the port of <section> ("external_control" through
//     UpdateExternalControlConfig, any other name through UpdateControlDeviceSettings), reading
//     each back at once; prints "lost <n> failed <m>": values not read back as written (an
//     update of another process lost it), and failed calls, then "done".
//   alternate: writes the "external_control" ports "1111" and "2222" in turn until it is killed;
//     prints "ready" after the first write that succeeded, "failed" and exits 1 when one fails.
//   once <port>: writes the "external_control" port once; prints "result <n>".
//   stop-inside: starts a write cycle of the "external_control" section, prints "inside" and stops
//     itself with SIGSTOP there, holding the locks; once continued, writes the port "5555" and
//     prints "result <n>".
//   validate <stop-file>: prints "ready", then calls ValidateJsonConfig over and over until
//     <stop-file> exists (at most 60 s); prints "validated <n>" with the count of calls.
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>
#include <unistd.h>

#include "config/config_cycle.h"
#include "libvask_external_device.h"

namespace {

external_control_info external_control(const std::string &port)
{
    return {false, port, "9600", "ttyS0"};
}

int write_port(const std::string &section, const std::string &port)
{
    if (section == "external_control") {
        external_control_info info = external_control(port);
        return UpdateExternalControlConfig(&info);
    }
    return UpdateControlDeviceSettings(section, true, "shure-tcp", port, "192.0.2.10", "secret", "", "admin");
}

// The port stored in `section`, or "<failed>".
std::string read_port(const std::string &section)
{
    if (section == "external_control") {
        external_control_info info{};
        return ReadExternalControlConfig(&info) == 0 ? info.port : "<failed>";
    }
    external_protocol_info info{};
    return ReadControlDeviceConfig(section, &info) == 0 ? info.port : "<failed>";
}

bool wait_for_file(const std::string &path)
{
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (access(path.c_str(), F_OK) != 0) {
        if (std::chrono::steady_clock::now() >= deadline)
            return false;
        struct timespec pause = {0, 1000 * 1000};
        nanosleep(&pause, nullptr);
    }
    return true;
}

int run_writes(const std::string &section, int count, const std::string &go_file)
{
    printf("ready\n");
    if (!wait_for_file(go_file)) {
        fprintf(stderr, "config_process_helper: no start signal\n");
        return 1;
    }
    int lost = 0;
    int failed = 0;
    for (int value = 1; value <= count; ++value) {
        std::string port = std::to_string(value);
        if (write_port(section, port) != 0) {
            ++failed;
            continue;
        }
        if (read_port(section) != port)
            ++lost;
    }
    printf("lost %d failed %d\ndone\n", lost, failed);
    return 0;
}

int run_alternate()
{
    for (unsigned long round = 0;; ++round) {
        if (write_port("external_control", round % 2 == 0 ? "1111" : "2222") != 0) {
            printf("failed\n");
            return 1;
        }
        if (round == 0)
            printf("ready\n");
    }
}

int run_stop_inside()
{
    vask_ed::config_call call("config_process_helper", __LINE__);
    call.section = "external_control";
    int result = vask_ed::edit_config(call, [](cJSON *, cJSON *control) {
        printf("inside\n");
        raise(SIGSTOP);
        cJSON *tcp = cJSON_GetObjectItem(control, "tcp");
        return cJSON_ReplaceItemInObject(tcp, "port", cJSON_CreateString("5555")) ? 0 : -1;
    });
    printf("result %d\n", result);
    return 0;
}

int run_validate(const std::string &stop_file)
{
    printf("ready\n");
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    long count = 0;
    while (access(stop_file.c_str(), F_OK) != 0 && std::chrono::steady_clock::now() < deadline) {
        ValidateJsonConfig();
        ++count;
    }
    printf("validated %ld\n", count);
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    setvbuf(stdout, nullptr, _IOLBF, 0);
    std::string operation = argc > 1 ? argv[1] : "";
    if (operation == "write" && argc == 5)
        return run_writes(argv[2], atoi(argv[3]), argv[4]);
    if (operation == "alternate" && argc == 2)
        return run_alternate();
    if (operation == "once" && argc == 3) {
        printf("result %d\n", write_port("external_control", argv[2]));
        return 0;
    }
    if (operation == "stop-inside" && argc == 2)
        return run_stop_inside();
    if (operation == "validate" && argc == 3)
        return run_validate(argv[2]);
    fprintf(stderr, "usage: config_process_helper write <section> <count> <go-file> | alternate | once <port> | "
                    "stop-inside | validate <stop-file>\n");
    return 2;
}
