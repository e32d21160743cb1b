# SPDX-License-Identifier: MIT
"""A private conference room for the tests, the examples and the benchmark: a mosquitto broker on a
free loopback port with the project's broker configuration, and external-device-sim in a temporary
system root seeded with the factory configuration files.

The programs come from the environment (set by the ctest test): VASK_MOSQUITTO, VASK_SIM,
VASK_EDCTL, VASK_DEFAULT_CONFIG, VASK_DEFAULT_MIC_CONFIG.
"""
import json
import os
import selectors
import shutil
import socket
import subprocess
import tempfile
import threading
import time
from pathlib import Path

READY_LINE = "external-device-sim: ready"
START_TIMEOUT_S = 20
STOP_TIMEOUT_S = 10


def _free_port() -> int:
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def _accepts(port: int) -> bool:
    try:
        with socket.create_connection(("127.0.0.1", port), timeout=0.5):
            return True
    except OSError:
        return False


def _stop(process: subprocess.Popen) -> int:
    """Stops a child by its pid: SIGTERM, then SIGKILL after STOP_TIMEOUT_S; its exit status."""
    if process.poll() is None:
        process.terminate()
        try:
            return process.wait(timeout=STOP_TIMEOUT_S)
        except subprocess.TimeoutExpired:
            process.kill()
    return process.wait()


def wait_for_line(process: subprocess.Popen, expected: str, timeout_s: float) -> list:
    """Reads `process`'s standard output (a text pipe) until the line `expected`; the lines read
    before it. Raises RuntimeError when the output ends or `timeout_s` passes first."""
    lines = []
    with selectors.DefaultSelector() as selector:
        selector.register(process.stdout, selectors.EVENT_READ)
        deadline = time.monotonic() + timeout_s
        while time.monotonic() < deadline:
            if selector.select(timeout=deadline - time.monotonic()):
                line = process.stdout.readline()
                if line.rstrip("\n") == expected:
                    return lines
                if not line:
                    break
                lines.append(line)
    raise RuntimeError(f"no line {expected!r} from {process.args[0]}; it printed {lines!r}")


def broker_config(port: int) -> str:
    """The tests' broker configuration (as tests/support/broker.cpp writes it)."""
    config = (f"listener {port} 127.0.0.1\n"
              "allow_anonymous true\n"
              "persistence false\n"
              # Without no-delay a QoS 1 exchange stalls on delayed acknowledgements.
              "set_tcp_nodelay true\n"
              # The default of 1000 drops QoS 1 signals to a subscriber behind in a burst.
              "max_queued_messages 1000000\n"
              "max_queued_bytes 0\n"
              "log_dest stderr\n"
              "log_type error\n"
              "log_type warning\n")
    # As root, mosquitto would switch to its own user, which may not reach our temporary folder.
    if os.geteuid() == 0:
        config += "user root\n"
    return config


class Broker:
    """mosquitto on a free loopback port, in a folder of its own."""

    def __init__(self) -> None:
        self._dir = tempfile.TemporaryDirectory(prefix="vask-py-broker-")
        self.process = None
        for _attempt in range(5):
            self.port = _free_port()
            if self._launch():
                return
        raise RuntimeError("mosquitto did not start")

    @property
    def url(self) -> str:
        return f"mqtt://127.0.0.1:{self.port}"

    def _launch(self) -> bool:
        config = Path(self._dir.name) / "mosquitto.conf"
        config.write_text(broker_config(self.port))
        log = open(Path(self._dir.name) / "broker.log", "w")
        self.process = subprocess.Popen([os.environ["VASK_MOSQUITTO"], "-c", str(config)],
                                        stdout=log, stderr=subprocess.STDOUT)
        log.close()
        deadline = time.monotonic() + 5
        while time.monotonic() < deadline and self.process.poll() is None:
            if _accepts(self.port):
                return True
            time.sleep(0.02)
        _stop(self.process)
        return False

    def stop(self) -> None:
        if self.process is not None:
            _stop(self.process)
        self._dir.cleanup()


class Room:
    """The simulator in a temporary system root on `broker`, and edctl with the same environment."""

    def __init__(self, broker: Broker) -> None:
        self._dir = tempfile.TemporaryDirectory(prefix="vask-py-room-")
        self.root = self._dir.name
        etc = Path(self.root) / "etc"
        etc.mkdir()
        shutil.copy(os.environ["VASK_DEFAULT_CONFIG"], etc / "external_device.json")
        shutil.copy(os.environ["VASK_DEFAULT_MIC_CONFIG"], etc / "microphone_control.json")
        self.env = dict(os.environ, VASK_BUS_URL=broker.url, VASK_SYSROOT=self.root)
        # The sanitizer runtime preloaded for this interpreter is not for the tools.
        self.env.pop("LD_PRELOAD", None)
        self.sim = None
        self._drain = None

    def start_sim(self) -> None:
        """Starts the simulator and waits (up to START_TIMEOUT_S) until it can be called."""
        self.sim = subprocess.Popen(
            [os.environ["VASK_SIM"], "--foreground", "--bus", self.env["VASK_BUS_URL"], "--root", self.root],
            env=self.env, stdout=subprocess.PIPE, stderr=open(Path(self.root) / "sim.log", "w"), text=True)
        wait_for_line(self.sim, READY_LINE, START_TIMEOUT_S)
        # Whatever it prints later must not fill the pipe.
        self._drain = threading.Thread(target=self.sim.stdout.read, daemon=True)
        self._drain.start()

    def stop_sim(self) -> int:
        """Stops the simulator (SIGTERM); its exit status (None when it was not running)."""
        if self.sim is None:
            return None
        status = _stop(self.sim)
        self.sim = None
        return status

    def edctl(self, *args: str, check: bool = True) -> subprocess.CompletedProcess:
        """Runs edctl with the room's environment; raises when it fails and `check` is set."""
        result = subprocess.run([os.environ["VASK_EDCTL"], *args], env=self.env, capture_output=True,
                                text=True, timeout=60)
        if check and result.returncode != 0:
            raise RuntimeError(f"edctl {' '.join(args)} failed ({result.returncode}): {result.stderr}")
        return result

    def emit(self, event: str, payload: str, count: int) -> None:
        """Has the simulator emit `count` signals of `event` with the text `payload`, in which "%d"
        counts 0 to count - 1."""
        self.edctl("sim", "emit", event, json.dumps(payload), str(count))

    def path(self, relative: str) -> Path:
        """A path below the system root."""
        return Path(self.root) / relative

    def stop(self) -> None:
        self.stop_sim()
        self._dir.cleanup()
