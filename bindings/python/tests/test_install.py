# SPDX-License-Identifier: MIT
"""The installed package: `cmake --install` of this build into temporary folders (with a prefix and
with DESTDIR), the package's files, and a program outside the tree that imports the installed copy
and runs a vote against the installed simulator."""
import os
import subprocess
import sys
import tempfile
import textwrap
from pathlib import Path

import pytest

from room import Room

BUILD = os.environ["VASK_BUILD_DIR"]
PACKAGE_DIR = os.environ["VASK_PYTHON_INSTALL_DIR"]
EXT_SUFFIX = subprocess.run([sys.executable, "-c", "import sysconfig; print(sysconfig.get_config_var('EXT_SUFFIX'))"],
                            capture_output=True, text=True, check=True).stdout.strip()
PACKAGE_FILES = sorted(["__init__.py", "__init__.pyi", "_client.py", "_errors.py", "_events.py", "_records.py",
                        "py.typed", "_native" + EXT_SUFFIX])

# Runs a vote with the installed package; argv: the installed edctl.
VOTE_PROGRAM = textwrap.dedent("""
    import subprocess, sys
    import vask_external_device as ved
    print(ved.__file__)
    with open("/proc/self/maps") as maps:
        print(next(line.split()[-1] for line in maps if "libvask_external_device.so" in line))
    with ved.Client() as client:
        with client.events("voting_results_event", timeout=10) as reports:
            client.set_voting(ved.VOTING_ENTER)
            client.set_voting(ved.VOTING_START)
            subprocess.run([sys.argv[1], "sim", "vote", "agree"], check=True, env=dict(
                (k, v) for k, v in __import__("os").environ.items() if k != "LD_PRELOAD"))
            result = client.set_voting(ved.VOTING_STOP)
            print(result.status, result.agree, result.total)
            print(max(record.total for _, record in (next(reports) for _ in range(4))))
""")


def install(destdir=None, prefix=None):
    env = dict(os.environ)
    env.pop("DESTDIR", None)
    if destdir:
        env["DESTDIR"] = destdir
    command = [os.environ["VASK_CMAKE"], "--install", BUILD]
    if prefix:
        command += ["--prefix", prefix]
    result = subprocess.run(command, env=env, capture_output=True, text=True, timeout=120)
    assert result.returncode == 0, result.stdout + result.stderr


def package_files(root):
    return sorted(path.name for path in (Path(root) / PACKAGE_DIR / "vask_external_device").iterdir())


def InstallWithDestdir_ShouldStageThePackageBelowThePrefix():
    with tempfile.TemporaryDirectory() as stage:
        install(destdir=stage)
        prefix = subprocess.run([os.environ["VASK_CMAKE"], "-L", "-N", BUILD], capture_output=True, text=True)
        installed_prefix = next(line.split("=", 1)[1] for line in prefix.stdout.splitlines()
                                if line.startswith("CMAKE_INSTALL_PREFIX:"))
        assert package_files(stage + installed_prefix) == PACKAGE_FILES


def InstalledPackage_ShouldRunAVoteFromOutsideTheTree(broker, monkeypatch, tmp_path):
    prefix = tmp_path / "prefix"
    install(prefix=str(prefix))
    assert package_files(prefix) == PACKAGE_FILES
    monkeypatch.setenv("VASK_SIM", str(prefix / "bin/external-device-sim"))
    monkeypatch.setenv("VASK_EDCTL", str(prefix / "bin/edctl"))
    libdir = str(prefix / os.environ["VASK_INSTALL_LIBDIR"])
    monkeypatch.setenv("LD_LIBRARY_PATH", libdir)  # the installed tools carry no run path
    room = Room(broker)
    try:
        room.start_sim()
        env = dict(os.environ, VASK_BUS_URL=broker.url, VASK_SYSROOT=room.root,
                   PYTHONPATH=str(prefix / PACKAGE_DIR))
        result = subprocess.run([sys.executable, "-c", VOTE_PROGRAM, str(prefix / "bin/edctl")], cwd=tmp_path,
                                env=env, capture_output=True, text=True, timeout=60)
        assert result.returncode == 0, result.stderr
        module, library, stopped, biggest = result.stdout.splitlines()
        assert module == str(prefix / PACKAGE_DIR / "vask_external_device/__init__.py")
        assert library.startswith(libdir + "/libvask_external_device.so")
        assert stopped == "3 1 1"
        assert biggest == "1"
    finally:
        room.stop()
