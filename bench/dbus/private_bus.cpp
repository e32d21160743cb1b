// SPDX-License-Identifier: MIT
#include "private_bus.h"

#include <fstream>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace vask_bench {

namespace {

// A session bus without the user's services: anyone on the socket may own names and call anyone.
std::string daemon_config(const std::string &socket)
{
    return "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\"\n"
           " \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
           "<busconfig>\n"
           "  <type>session</type>\n"
           "  <listen>unix:path=" + socket + "</listen>\n"
           "  <auth>EXTERNAL</auth>\n"
           "  <policy context=\"default\">\n"
           "    <allow send_destination=\"*\" eavesdrop=\"true\"/>\n"
           "    <allow eavesdrop=\"true\"/>\n"
           "    <allow own=\"*\"/>\n"
           "  </policy>\n"
           "</busconfig>\n";
}

bool accepts_connections(const std::string &socket_path)
{
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return false;
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    socket_path.copy(address.sun_path, sizeof address.sun_path - 1);
    bool ok = connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
    close(fd);
    return ok;
}

} // namespace

private_bus::private_bus()
{
    std::string socket = dir_.path() + "/bus";
    std::string config = dir_.path() + "/bus.conf";
    std::ofstream(config) << daemon_config(socket);
    address_ = "unix:path=" + socket;
    if (!daemon_.start({VASK_DBUS_DAEMON, "--config-file=" + config, "--print-address", "--nofork"}, {},
                       dir_.path() + "/dbus-daemon.log"))
        return;
    // The address it prints is ours plus a guid; the socket answering is the readiness we need.
    started_ = vask_test::eventually([&] { return daemon_.running() && accepts_connections(socket); });
}

} // namespace vask_bench
