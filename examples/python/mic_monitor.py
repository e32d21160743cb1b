#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""mic_monitor: prints every microphone that goes on or off, as the box's service reports it.

    mic_monitor.py [--count N] [--timeout SECONDS]

Stops after N microphone events (default 4), or when no event came for SECONDS (default 30), with
exit status 1 when fewer arrived. The bus is the one VASK_BUS_URL names.
"""
import argparse
import sys

import vask_external_device as ved


def main() -> int:
    parser = argparse.ArgumentParser(prog="mic_monitor")
    parser.add_argument("--count", type=int, default=4)
    parser.add_argument("--timeout", type=float, default=30)
    options = parser.parse_args()

    seen = 0
    with ved.Client() as client:
        # The stream queues signals from the moment it is made: nothing after this line is missed.
        with client.events("mic_on_event", "non_list_mic_event", timeout=options.timeout) as signals:
            print("mic_monitor: listening", flush=True)
            for event, mic in signals:
                # "non_list_mic_event": a microphone the mic central does not have on its list.
                kind = "microphone" if event == "mic_on_event" else "unlisted microphone"
                print(f"{kind} {mic.group}/{mic.id} {'on' if mic.on else 'off'}", flush=True)
                seen += 1
                if seen >= options.count:
                    break
    complete = seen >= options.count
    print(f"mic_monitor: {'done' if complete else 'timed out'}")
    return 0 if complete else 1


if __name__ == "__main__":
    sys.exit(main())
