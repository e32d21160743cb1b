#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""room_snapshot: reads every setting of the room's external devices and prints one JSON document.

    room_snapshot.py

Each member of the document is one reading; a reading that failed holds {"error": <result>}
instead, and the exit status is then 1. Passwords are not printed.
"""
import json
import sys

import vask_external_device as ved


def without_password(record):
    reading = record.to_dict()
    reading.pop("password", None)
    return reading


def main() -> int:
    failures = 0
    document = {}

    def add(name, read, convert=lambda value: value.to_dict()):
        nonlocal failures
        try:
            document[name] = convert(read())
        except ved.Error as error:
            document[name] = {"error": error.code}
            failures += 1

    with ved.Client() as client:
        add("voting", client.get_voting)
        add("mic_central", client.get_mic_central_info, without_password)
        add("mic_central_connected", client.get_mic_central_connection_state, bool)
        add("castdeck", client.get_castdeck_info, without_password)
        add("projector", client.get_projector_settings, without_password)
        add("tcp_control", client.get_tcp_control_settings)
        add("image_share", client.get_imshare_info)
        add("microphones_on", client.get_mic_on_list, lambda mics: [mic.to_dict() for mic in mics])
        add("multiple_speakers_mode", client.get_mic_control_multiple_speakers_mode_info)

        def control_items():
            # The call also answers -1 for an empty list; when the file was just read successfully
            # above, -1 means that no item is registered.
            try:
                return client.get_mic_control_info()
            except ved.Error as error:
                if error.code == -1 and "error" not in document["multiple_speakers_mode"]:
                    return []
                raise

        add("mic_control_items", control_items, lambda items: [item.to_dict() for item in items])
        add("rs232_devices", client.get_external_rs232_device_list, lambda devices: [d.to_dict() for d in devices])
        add("rs232_control", client.get_external_rs232_control_info)
        add("remote_controller", client.get_zorvo_fw_info)
    print(json.dumps(document, indent=2))
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
