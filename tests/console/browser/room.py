# SPDX-License-Identifier: MIT
"""One room for the browser tests: a private mosquitto broker, external-device-sim in a system root
of its own, and vask-console on a free loopback port, all stopped by pid at the end."""
import json
import os
import select
import shutil
import signal
import socket
import subprocess
import tempfile
import time

ENV = os.environ


def free_port():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


def wait_for_line(process, wanted, timeout):
    """Reads the process's standard output until the line `wanted`; the lines read before it."""
    deadline = time.monotonic() + timeout
    seen = []
    buffer = b""
    fd = process.stdout.fileno()
    while time.monotonic() < deadline:
        ready, _, _ = select.select([fd], [], [], max(0.0, deadline - time.monotonic()))
        chunk = os.read(fd, 4096) if ready else b""
        if not chunk:
            break
        buffer += chunk
        while b"\n" in buffer:
            line, buffer = buffer.split(b"\n", 1)
            seen.append(line.decode())
            if seen[-1] == wanted:
                return seen
    raise RuntimeError(f"{process.args[0]} did not print {wanted!r}: {seen}")


class Room:
    def __init__(self):
        self.broker = self.sim = self.console = None
        try:
            self._start()
        except BaseException:
            self.close()
            raise

    def _start(self):
        self.dir = tempfile.mkdtemp(prefix="vask-console-browser-")
        self.root = os.path.join(self.dir, "root")
        os.makedirs(os.path.join(self.root, "etc"))
        shutil.copy(ENV["VASK_DEFAULT_CONFIG"], os.path.join(self.root, "etc", "external_device.json"))
        shutil.copy(ENV["VASK_DEFAULT_MIC_CONFIG"], os.path.join(self.root, "etc", "microphone_control.json"))
        port = free_port()
        config = os.path.join(self.dir, "mosquitto.conf")
        with open(config, "w") as f:
            f.write(f"listener {port} 127.0.0.1\nallow_anonymous true\npersistence false\nset_tcp_nodelay true\n"
                    "max_queued_messages 1000000\nmax_queued_bytes 0\nlog_dest stderr\nlog_type error\n")
            if os.geteuid() == 0:
                f.write("user root\n")
        self.env = dict(os.environ, VASK_BUS_URL=f"mqtt://127.0.0.1:{port}", VASK_SYSROOT=self.root)
        self.broker = subprocess.Popen([ENV["VASK_MOSQUITTO_BROKER"], "-c", config], stderr=subprocess.DEVNULL)
        deadline = time.monotonic() + 10
        while True:
            try:
                socket.create_connection(("127.0.0.1", port), timeout=1).close()
                break
            except OSError:
                if time.monotonic() > deadline:
                    raise
                time.sleep(0.05)
        self.start_sim()
        with open(os.path.join(self.dir, "console.log"), "w") as log:
            self.console = subprocess.Popen(
                [ENV["VASK_CONSOLE"], "--listen", "127.0.0.1:0", "--www", ENV["VASK_CONSOLE_WWW"],
                 "--presence-interval", "200"], env=self.env, stdout=subprocess.PIPE, stderr=log)
        lines = wait_for_line(self.console, "vask-console: ready", 20)
        self.url = lines[0].split("listening on ", 1)[1]

    def start_sim(self):
        self.sim = subprocess.Popen([ENV["VASK_SIM"], "--foreground"], env=self.env, stdout=subprocess.PIPE,
                                    stderr=subprocess.DEVNULL)
        wait_for_line(self.sim, "external-device-sim: ready", 20)

    def stop_sim(self):
        self.sim.send_signal(signal.SIGTERM)
        assert self.sim.wait(10) == 0
        self.sim.stdout.close()

    def edctl(self, *args):
        return subprocess.run([ENV["VASK_EDCTL"], *args], env=self.env, check=True, capture_output=True,
                              text=True, timeout=30).stdout

    def applied(self, section):
        return json.loads(self.edctl("sim", "applied", section))

    def etc(self, name):
        with open(os.path.join(self.root, "etc", name)) as f:
            return json.load(f)

    def close(self):
        for process in (self.console, self.sim, self.broker):
            if process and process.poll() is None:
                process.send_signal(signal.SIGTERM)
                try:
                    process.wait(20)
                except subprocess.TimeoutExpired:
                    process.kill()
                    process.wait()
            if process and process.stdout:
                process.stdout.close()
        shutil.rmtree(self.dir, ignore_errors=True)
        if self.console:
            assert self.console.returncode == 0, f"vask-console exit status {self.console.returncode}"
