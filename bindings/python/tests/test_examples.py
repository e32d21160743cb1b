# SPDX-License-Identifier: MIT
"""The Python examples of examples/python, run as programs against the simulator."""
import json
import os
import subprocess
import sys
from pathlib import Path

from room import wait_for_line

EXAMPLES = Path(os.environ["VASK_PY_EXAMPLES"])
WAIT_S = 20


def start(name, *args):
    return subprocess.Popen([sys.executable, str(EXAMPLES / name), *args], stdout=subprocess.PIPE,
                            stderr=subprocess.PIPE, text=True)


def run(name, *args):
    return subprocess.run([sys.executable, str(EXAMPLES / name), *args], capture_output=True, text=True,
                          timeout=WAIT_S * 2)


def MicMonitor_ShouldPrintEachMicrophoneEvent(sim):
    monitor = start("mic_monitor.py", "--count", "2", "--timeout", str(WAIT_S))
    wait_for_line(monitor, "mic_monitor: listening", WAIT_S)
    sim.edctl("sim", "press", "1", "7")
    sim.edctl("sim", "press", "9", "9")
    out, err = monitor.communicate(timeout=WAIT_S)
    assert monitor.returncode == 0, err
    assert out == "microphone 1/7 on\nunlisted microphone 9/9 on\nmic_monitor: done\n"


def VotingConsole_ShouldPrintTheTalliesAndTheResult(sim):
    console = start("voting_console.py", "--votes", "2", "--timeout", str(WAIT_S))
    wait_for_line(console, "voting_console: vote running", WAIT_S)
    sim.edctl("sim", "vote", "agree")
    sim.edctl("sim", "vote", "disagree")
    out, err = console.communicate(timeout=WAIT_S)
    assert console.returncode == 0, err
    assert out == ("tally 1: agree 1, disagree 0, abandon 0\n"
                   "tally 2: agree 1, disagree 1, abandon 0\n"
                   "result: agree 1, disagree 1, abandon 0, total 2\n"
                   "voting_console: vote closed\n")


def ProjectorSetup_ShouldStoreAndTestPjlink(sim):
    result = run("projector_setup.py", "192.0.2.40", "secret")
    assert result.returncode == 0, result.stderr
    assert result.stdout == "projector: protocol pjlink, address 192.0.2.40\nconnection test: ok\n"


def ProjectorSetup_ShouldFailTheTestOfAnAddressThatIsNotIpv4(sim):
    result = run("projector_setup.py", "projector.example", "secret")
    assert result.returncode == 1
    assert result.stdout == "projector: protocol pjlink, address projector.example\nconnection test: failed (-1)\n"


def RoomSnapshot_ShouldPrintEveryReadingWithoutPasswords(sim):
    sim.edctl("mic-central", "set", "protocol=tcp", "ip_address=192.0.2.41", "password=secret")
    result = run("room_snapshot.py")
    assert result.returncode == 0, result.stderr
    document = json.loads(result.stdout)
    assert list(document) == ["voting", "mic_central", "mic_central_connected", "castdeck", "projector",
                              "tcp_control", "image_share", "microphones_on", "multiple_speakers_mode",
                              "mic_control_items", "rs232_devices", "rs232_control", "remote_controller"]
    assert document["mic_central"]["ip_address"] == "192.0.2.41"
    assert "secret" not in result.stdout
    assert document["rs232_devices"][1] == {"number": 1, "port": "ttyUSB0", "description": "USB serial adapter"}
    assert document["mic_control_items"] == []


def RoomSnapshot_ShouldReportAFailedReadingAndExitWithOne(sim):
    sim.stop_sim()
    result = run("room_snapshot.py")
    assert result.returncode == 1
    document = json.loads(result.stdout)
    assert document["voting"] == {"error": -3}
    assert document["tcp_control"]["port"] == "23"
