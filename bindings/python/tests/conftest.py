# SPDX-License-Identifier: MIT
"""Fixtures: a private broker per test module, a simulator in a fresh system root per test, and the
process environment pointed at them (the library reads VASK_BUS_URL and VASK_SYSROOT at each use)."""
import os

import pytest

from room import Broker, Room

# A build where the module cannot be tested says why and runs nothing: pytest exits with 5 (what it
# returns when it collected no test), which the ctest test counts as skipped.
def pytest_configure(config):
    reason = os.environ.get("VASK_PY_SKIP")
    if reason:
        pytest.exit("vask_external_device: the suite is skipped in this build: " + reason, returncode=5)


@pytest.fixture(scope="module")
def broker():
    running = Broker()
    yield running
    running.stop()


@pytest.fixture
def room(broker, monkeypatch):
    """A system root seeded with the factory files and the environment pointed at it; no simulator."""
    seeded = Room(broker)
    monkeypatch.setenv("VASK_BUS_URL", broker.url)
    monkeypatch.setenv("VASK_SYSROOT", seeded.root)
    yield seeded
    seeded.stop()


@pytest.fixture
def sim(room):
    """The room with its simulator running."""
    room.start_sim()
    yield room
    status = room.stop_sim()
    assert status in (0, None), f"the simulator exited with {status}"  # None: the test stopped it


@pytest.fixture
def client(sim):
    """An open Client on the room's simulator."""
    import vask_external_device as ved
    with ved.Client() as opened:
        yield opened
