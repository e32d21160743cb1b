#!@Python3_EXECUTABLE@
# SPDX-License-Identifier: MIT
"""The Python binding against the library, in the benchmark driver's contract (bench/README.md):
a private broker and external-device-sim, then

- Python/get_voting: Client.get_voting() against the simulator; p50_us and p99_us (nearest rank)
  over VASK_BENCH_CALLS calls (default 5000) after 50 warm-up calls, as roundtrip_bench measures
  ed_get_voting (Library/get_voting);
- Python/aevents_signals: a burst of 100,000 "mic_on_event" signals from the simulator taken through
  Client.aevents() on an asyncio loop, timed from the emit request to the last signal, as
  signal_bench times the library's callback (LibrarySignals); lost and out_of_order are counted.

Writes Google Benchmark's JSON form to --benchmark_out; --benchmark_filter selects by name.
"""
import argparse
import asyncio
import json
import os
import re
import sys
import threading
import time

os.environ.setdefault("VASK_MOSQUITTO", "@MOSQUITTO_BROKER@")
os.environ.setdefault("VASK_SIM", "$<TARGET_FILE:external-device-sim>")
os.environ.setdefault("VASK_EDCTL", "$<TARGET_FILE:edctl>")
os.environ.setdefault("VASK_DEFAULT_CONFIG", "@PROJECT_SOURCE_DIR@/data/external_device.json")
os.environ.setdefault("VASK_DEFAULT_MIC_CONFIG", "@PROJECT_SOURCE_DIR@/data/microphone_control.json")
sys.path[:0] = ["@CMAKE_CURRENT_BINARY_DIR@", "@CMAKE_CURRENT_SOURCE_DIR@/tests"]

import vask_external_device as ved  # noqa: E402
from room import Broker, Room  # noqa: E402

BURST = 100000
# A burst that makes no progress for this long is over: what has not arrived is lost.
STALL_S = 10


def nearest_rank(samples, fraction):
    ordered = sorted(samples)
    return ordered[max(0, min(len(ordered) - 1, int(fraction * len(ordered) + 0.999999) - 1))]


def get_voting(client):
    calls = int(os.environ.get("VASK_BENCH_CALLS", "5000"))
    for _ in range(50):
        client.get_voting()
    samples = []
    for _ in range(calls):
        start = time.perf_counter()
        client.get_voting()
        samples.append((time.perf_counter() - start) * 1e6)
    return {"iterations": calls, "real_time": sum(samples) / calls, "time_unit": "us",
            "p50_us": nearest_rank(samples, 0.50), "p99_us": nearest_rank(samples, 0.99)}


async def take_burst(client, room):
    loop = asyncio.get_running_loop()
    stream = client.aevents("mic_on_event")
    emitter = threading.Thread(target=room.emit, args=("mic_on_event", '{"Group":"1","Id":"%d","On":true}', BURST))
    seen, expected, out_of_order = set(), 0, 0
    start = last = time.perf_counter()
    emitter.start()
    try:
        async with asyncio.timeout(STALL_S) as stall:
            async for _event, record in stream:
                number = int(record.id)
                out_of_order += number != expected
                expected = number + 1
                seen.add(number)
                if len(seen) == BURST:
                    break
                if number % 1000 == 0:
                    stall.reschedule(loop.time() + STALL_S)
        last = time.perf_counter()
    except TimeoutError:
        last = time.perf_counter() - STALL_S
    finally:
        stream.close()
        emitter.join()
    seconds = last - start
    return {"iterations": 1, "real_time": seconds * 1e3, "time_unit": "ms",
            "items_per_second": len(seen) / seconds, "lost": BURST - len(seen), "out_of_order": out_of_order}


BENCHMARKS = {
    "Python/get_voting": lambda client, room: get_voting(client),
    "Python/aevents_signals": lambda client, room: asyncio.run(take_burst(client, room)),
}


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--benchmark_filter", default=".")
    parser.add_argument("--benchmark_out")
    parser.add_argument("--benchmark_out_format", default="json")
    options = parser.parse_args()
    chosen = [name for name in BENCHMARKS if re.search(options.benchmark_filter, name)]
    broker = Broker()
    room = Room(broker)
    os.environ.update(VASK_BUS_URL=broker.url, VASK_SYSROOT=room.root)
    entries = []
    try:
        room.start_sim()
        with ved.Client() as client:
            for name in chosen:
                entry = {"name": name, "run_type": "iteration"}
                entry.update(BENCHMARKS[name](client, room))
                entries.append(entry)
                print(json.dumps(entry))
    finally:
        room.stop()
        broker.stop()
    document = {"context": {"executable": sys.argv[0]}, "benchmarks": entries}
    if options.benchmark_out:
        with open(options.benchmark_out, "w") as out:
            json.dump(document, out, indent=2)
    return 0


if __name__ == "__main__":
    sys.exit(main())
