// SPDX-License-Identifier: MIT
// A D-Bus service written with sd-bus: object /org/vask/Bench, interface org.vask.Bench, one method
// per canned reply taking the request body as a string and answering the reply as a string. The
// baseline of a method call on a private dbus-daemon.
//
//   sdbus_responder ADDRESS BUS_NAME METHOD=REPLY...
// Prints "ready" once it owns BUS_NAME; stops on SIGTERM or SIGINT.
#include <csignal>
#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <systemd/sd-bus.h>
#include <vector>

#include "dbus_names.h"
#include "replies.h"

namespace {

std::map<std::string, std::string> g_replies;

int answer(sd_bus_message *call, void *, sd_bus_error *)
{
    const char *body = nullptr;
    int rc = sd_bus_message_read(call, "s", &body);
    if (rc < 0)
        return rc;
    auto found = g_replies.find(sd_bus_message_get_member(call));
    if (found == g_replies.end())
        return -ENOENT;
    return sd_bus_reply_method_return(call, "s", found->second.c_str());
}

int fail(const char *what, int rc)
{
    fprintf(stderr, "sdbus_responder: %s: %s\n", what, strerror(-rc));
    return 1;
}

} // namespace

int main(int argc, char **argv)
{
    if (!vask_bench::parse_replies(argc, argv, "ADDRESS BUS_NAME METHOD=REPLY...", g_replies))
        return 2;
    // The vtable holds pointers into the method names: they live in g_replies until exit.
    std::vector<sd_bus_vtable> vtable;
    vtable.push_back(SD_BUS_VTABLE_START(0));
    for (const auto &entry : g_replies)
        vtable.push_back(SD_BUS_METHOD(entry.first.c_str(), "s", "s", answer, 0));
    vtable.push_back(SD_BUS_VTABLE_END);

    sigset_t stop_signals;
    sigemptyset(&stop_signals);
    sigaddset(&stop_signals, SIGTERM);
    sigaddset(&stop_signals, SIGINT);
    sigprocmask(SIG_BLOCK, &stop_signals, nullptr);

    sd_bus *bus = nullptr;
    sd_event *event = nullptr;
    int rc = sd_bus_new(&bus);
    if (rc >= 0)
        rc = sd_bus_set_address(bus, argv[1]);
    if (rc >= 0)
        rc = sd_bus_set_bus_client(bus, 1);
    if (rc >= 0)
        rc = sd_bus_start(bus);
    if (rc < 0)
        return fail("connect", rc);
    rc = sd_bus_add_object_vtable(bus, nullptr, vask_bench::kObjectPath, vask_bench::kInterface, vtable.data(),
                                  nullptr);
    if (rc < 0)
        return fail("add object", rc);
    rc = sd_bus_request_name(bus, argv[2], 0);
    if (rc < 0)
        return fail("request name", rc);
    rc = sd_event_default(&event);
    if (rc >= 0)
        rc = sd_bus_attach_event(bus, event, SD_EVENT_PRIORITY_NORMAL);
    if (rc >= 0)
        rc = sd_event_add_signal(event, nullptr, SIGTERM, nullptr, nullptr);
    if (rc >= 0)
        rc = sd_event_add_signal(event, nullptr, SIGINT, nullptr, nullptr);
    if (rc < 0)
        return fail("event loop", rc);
    printf("ready\n");
    fflush(stdout);
    // A signal source without a handler ends the loop when the signal arrives.
    rc = sd_event_loop(event);
    sd_bus_flush_close_unref(bus);
    sd_event_unref(event);
    return rc < 0 ? fail("event loop", rc) : 0;
}
