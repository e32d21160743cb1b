// SPDX-License-Identifier: MIT
// A D-Bus service written with GDBus: the same object, interface and methods as sdbus_responder,
// registered on a connection to the private dbus-daemon and served from the main loop.
//
//   gdbus_responder ADDRESS BUS_NAME METHOD=REPLY...
// Prints "ready" once it owns BUS_NAME; stops on SIGTERM or SIGINT.
#include <cstdio>
#include <gio/gio.h>
#include <glib-unix.h>
#include <map>
#include <string>

#include "dbus_names.h"
#include "replies.h"

namespace {

std::map<std::string, std::string> g_replies;
GMainLoop *g_loop = nullptr;

void answer(GDBusConnection *, const gchar *, const gchar *, const gchar *, const gchar *method,
            GVariant *, GDBusMethodInvocation *invocation, gpointer)
{
    auto found = g_replies.find(method);
    if (found == g_replies.end()) {
        g_dbus_method_invocation_return_dbus_error(invocation, "org.vask.Bench.Error.UnknownMethod", method);
        return;
    }
    g_dbus_method_invocation_return_value(invocation, g_variant_new("(s)", found->second.c_str()));
}

std::string introspection()
{
    std::string xml = std::string("<node><interface name='") + vask_bench::kInterface + "'>";
    for (const auto &entry : g_replies)
        xml += "<method name='" + entry.first +
               "'><arg type='s' name='body' direction='in'/><arg type='s' name='reply' direction='out'/></method>";
    return xml + "</interface></node>";
}

gboolean quit(gpointer)
{
    g_main_loop_quit(g_loop);
    return G_SOURCE_REMOVE;
}

int fail(const char *what, GError *error)
{
    fprintf(stderr, "gdbus_responder: %s: %s\n", what, error != nullptr ? error->message : "failed");
    if (error != nullptr)
        g_error_free(error);
    return 1;
}

} // namespace

int main(int argc, char **argv)
{
    if (!vask_bench::parse_replies(argc, argv, "ADDRESS BUS_NAME METHOD=REPLY...", g_replies))
        return 2;
    GError *error = nullptr;
    GDBusConnection *connection = g_dbus_connection_new_for_address_sync(
        argv[1],
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                          G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
        nullptr, nullptr, &error);
    if (connection == nullptr)
        return fail("connect", error);
    GDBusNodeInfo *node = g_dbus_node_info_new_for_xml(introspection().c_str(), &error);
    if (node == nullptr)
        return fail("introspection", error);
    static const GDBusInterfaceVTable vtable = {answer, nullptr, nullptr, {}};
    guint object = g_dbus_connection_register_object(connection, vask_bench::kObjectPath, node->interfaces[0],
                                                     &vtable, nullptr, nullptr, &error);
    if (object == 0)
        return fail("register object", error);
    GVariant *owned = g_dbus_connection_call_sync(
        connection, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "RequestName",
        g_variant_new("(su)", argv[2], 0u), G_VARIANT_TYPE("(u)"), G_DBUS_CALL_FLAGS_NONE, -1, nullptr, &error);
    if (owned == nullptr)
        return fail("request name", error);
    g_variant_unref(owned);

    g_loop = g_main_loop_new(nullptr, FALSE);
    g_unix_signal_add(SIGTERM, quit, nullptr);
    g_unix_signal_add(SIGINT, quit, nullptr);
    printf("ready\n");
    fflush(stdout);
    g_main_loop_run(g_loop);

    g_dbus_connection_unregister_object(connection, object);
    g_dbus_node_info_unref(node);
    g_dbus_connection_flush_sync(connection, nullptr, nullptr);
    g_object_unref(connection);
    g_main_loop_unref(g_loop);
    return 0;
}
