// SPDX-License-Identifier: MIT
#include "dbus_callers.h"

#include <gio/gio.h>
#include <systemd/sd-bus.h>

#include "dbus_names.h"

namespace vask_bench {

sdbus_caller::sdbus_caller(const std::string &address)
{
    sd_bus *bus = nullptr;
    int rc = sd_bus_new(&bus);
    if (rc >= 0)
        rc = sd_bus_set_address(bus, address.c_str());
    if (rc >= 0)
        rc = sd_bus_set_bus_client(bus, 1);
    if (rc >= 0)
        rc = sd_bus_start(bus);
    if (rc < 0) {
        sd_bus_unref(bus);
        return;
    }
    bus_ = bus;
}

sdbus_caller::~sdbus_caller()
{
    sd_bus_flush_close_unref(bus_);
}

bool sdbus_caller::call(const char *destination, const char *method, const std::string &body, std::string &reply)
{
    sd_bus_error error = SD_BUS_ERROR_NULL;
    sd_bus_message *answer = nullptr;
    int rc = sd_bus_call_method(bus_, destination, kObjectPath, kInterface, method, &error, &answer, "s",
                                body.c_str());
    const char *text = nullptr;
    if (rc >= 0)
        rc = sd_bus_message_read(answer, "s", &text);
    if (rc >= 0)
        reply = text;
    sd_bus_message_unref(answer);
    sd_bus_error_free(&error);
    return rc >= 0;
}

gdbus_caller::gdbus_caller(const std::string &address)
{
    connection_ = g_dbus_connection_new_for_address_sync(
        address.c_str(),
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                          G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
        nullptr, nullptr, nullptr);
}

gdbus_caller::~gdbus_caller()
{
    if (connection_ != nullptr) {
        g_dbus_connection_close_sync(connection_, nullptr, nullptr);
        g_object_unref(connection_);
    }
}

bool gdbus_caller::call(const char *destination, const char *method, const std::string &body, std::string &reply)
{
    GVariant *answer =
        g_dbus_connection_call_sync(connection_, destination, kObjectPath, kInterface, method,
                                    g_variant_new("(s)", body.c_str()), G_VARIANT_TYPE("(s)"),
                                    G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr);
    if (answer == nullptr)
        return false;
    const char *text = nullptr;
    g_variant_get(answer, "(&s)", &text);
    reply = text;
    g_variant_unref(answer);
    return true;
}

} // namespace vask_bench
