#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""projector_setup: switches the projector to PJLink and tests the connection.

    projector_setup.py IP_ADDRESS PASSWORD

Stores the PJLink settings in /etc/external_device.json (under VASK_SYSROOT when set), which also
tells the service to apply them, reads them back and asks the service to test the projector. Exit
status 0 when the settings were applied and the test passed.
"""
import argparse
import sys

import vask_external_device as ved

# The projector's protocol numbers, as get_projector_settings reports them.
PROTOCOL_NAMES = {0: "none", 1: "hitachi_tcp", 21: "hitachi_rs232", 24: "pjlink"}


def main() -> int:
    parser = argparse.ArgumentParser(prog="projector_setup")
    parser.add_argument("ip_address")
    parser.add_argument("password")
    options = parser.parse_args()

    with ved.Client() as client:
        try:
            client.set_pjlink_settings(options.ip_address, options.password)
        except ved.Error as error:
            print(f"projector_setup: the PJLink settings were not applied ({error.code})", file=sys.stderr)
            return 1
        # What the box now holds: the file is the reference, not what was asked for.
        stored = client.get_projector_settings()
        print(f"projector: protocol {PROTOCOL_NAMES.get(stored.protocol, 'unknown')}, address {stored.ip_address}")
        try:
            client.pjlink_test(options.ip_address, options.password)
        except ved.Error as error:
            print(f"connection test: failed ({error.code})")
            return 1
        print("connection test: ok")
        return 0


if __name__ == "__main__":
    sys.exit(main())
