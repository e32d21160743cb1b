// SPDX-License-Identifier: MIT
// projector_setup: switches the projector to PJLink and tests the connection.
//
//   projector_setup IP_ADDRESS PASSWORD
//
// Stores the PJLink settings in /etc/external_device.json (under VASK_SYSROOT when set), which
// also tells the service to apply them, reads them back and asks the service to test the
// projector. Exit status 0 when the settings were applied and the test passed.
#include <libvask_external_device.h>

#include <cstdio>

namespace {

// The projector's protocol numbers, as ed_get_projector_settings reports them.
const char *projector_protocol_name(int protocol)
{
    switch (protocol) {
    case 0: return "none";
    case 1: return "hitachi_tcp";
    case 21: return "hitachi_rs232";
    case 24: return "pjlink";
    default: return "unknown";
    }
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 3) {
        std::fprintf(stderr, "usage: projector_setup IP_ADDRESS PASSWORD\n");
        return 2;
    }
    const std::string ip_address = argv[1];
    const std::string password = argv[2];

    if (ed_init() != 0) {
        std::fprintf(stderr, "projector_setup: cannot open the library\n");
        return 1;
    }

    int rc = ed_set_pjlink_settings(ip_address, password);
    if (rc != 0) {
        std::fprintf(stderr, "projector_setup: the PJLink settings were not applied (%d)\n", rc);
        ed_release();
        return 1;
    }

    // What the box now holds: the file is the reference, not what was asked for.
    external_protocol_info stored{};
    rc = ed_get_projector_settings(&stored);
    if (rc != 0) {
        std::fprintf(stderr, "projector_setup: the projector settings cannot be read (%d)\n", rc);
        ed_release();
        return 1;
    }
    std::printf("projector: protocol %s, address %s\n", projector_protocol_name(stored.protocol),
                stored.ip_address.c_str());

    rc = ed_pjlink_test(ip_address, password);
    if (rc == 0)
        std::printf("connection test: ok\n");
    else
        std::printf("connection test: failed (%d)\n", rc);
    ed_release();
    return rc == 0 ? 0 : 1;
}
