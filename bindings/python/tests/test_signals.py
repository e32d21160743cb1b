# SPDX-License-Identifier: MIT
"""Signals through callbacks and the blocking iterator."""
import sys
import threading

import pytest

import vask_external_device as ved
from voting_steps import REPORTS, run_vote, tally

WAIT_S = 10


def Events_ShouldYieldTheReportsOfAWholeVote(client, sim):
    with client.events("voting_results_event", timeout=WAIT_S) as stream:
        run_vote(client, sim)
        received = [next(stream) for _ in REPORTS]
    assert [event for event, _ in received] == ["voting_results_event"] * len(REPORTS)
    assert [tally(record) for _, record in received] == REPORTS


def Events_ShouldGiveEachEventItsRecord(client, sim):
    with client.events(timeout=WAIT_S) as stream:
        sim.edctl("sim", "press", "1", "7")
        sim.edctl("sim", "press", "9", "9")  # not a listed microphone
        sim.edctl("sim", "info-change", '{"Type":4,"Data":12}')
        sim.edctl("sim", "cam-status", '{"Status":1,"Group":"2","Id":"3","On":1}')
        received = [next(stream) for _ in range(4)]
    assert received == [("mic_on_event", ved.SigMicOnData(group="1", id="7", on=True)),
                        ("non_list_mic_event", ved.SigMicOnData(group="9", id="9", on=True)),
                        ("info_data_change_event", ved.SigInfoDataChangeData(type=4, data=12)),
                        ("cam_status_event", ved.SigCamStatusData(status=1, group="2", id="3", on=True))]


def Events_ShouldEndWhenNoSignalCameWithinTheTimeout(client):
    with client.events("cam_status_event", timeout=0.2) as stream:
        assert list(stream) == []


def Events_ShouldCountWhatItDropsBeyondItsBound(client, sim):
    small = client.events("cam_status_event", timeout=WAIT_S, maxsize=2)
    with client.events("cam_status_event", timeout=WAIT_S) as everything:
        sim.emit("cam_status_event", '{"Status":%d}', 5)
        assert [record.status for _, record in (next(everything) for _ in range(5))] == [0, 1, 2, 3, 4]
    # `small` was called before `everything` for each signal: it has seen all five.
    assert small.dropped == 3
    small.close()
    assert [record.status for _, record in small] == [0, 1]


def Signal_ShouldBeDroppedWhenTheParserRefusesItsPayload(client, sim):
    with client.events("cam_status_event", timeout=WAIT_S) as stream:
        sim.edctl("sim", "cam-status", '{"Group":"1"}')  # no "Status"
        sim.edctl("sim", "cam-status", '{"Status":7}')
        assert next(stream) == ("cam_status_event", ved.SigCamStatusData(status=7))


def SetOpt_ShouldHandOverTheRawTextWhenParsingIsOff(client, sim):
    ved.set_opt(ved.OPT_SIGNAL_PARSE, 0)
    try:
        with client.events("cam_status_event", timeout=WAIT_S) as stream:
            sim.edctl("sim", "cam-status", '{"Status":1,"Group":"2"}')
            assert next(stream) == ("cam_status_event", '{"Status":1,"Group":"2"}')
    finally:
        ved.set_opt(ved.OPT_SIGNAL_PARSE, 1)
    with client.events("cam_status_event", timeout=WAIT_S) as stream:
        sim.edctl("sim", "cam-status", '{"Status":1,"Group":"2"}')
        assert next(stream) == ("cam_status_event", ved.SigCamStatusData(status=1, group="2"))


def Subscribe_ShouldCallTheCallbackWithTheRecordOnTheDispatchThread(client, sim):
    calls = []
    arrived = threading.Event()

    def on_mic(record):
        # A callback may call the library's operations.
        calls.append((record, threading.current_thread() is threading.main_thread(), client.get_voting().status))
        arrived.set()

    client.subscribe("mic_on_event", on_mic)
    sim.edctl("sim", "press", "1", "7")
    assert arrived.wait(WAIT_S)
    assert calls == [(ved.SigMicOnData(group="1", id="7", on=True), False, 0)]


def Unsubscribe_ShouldStopTheCallback(client, sim):
    calls = []
    client.subscribe("mic_on_event", calls.append)
    with client.events("mic_on_event", timeout=WAIT_S) as stream:
        sim.edctl("sim", "press", "1", "1")
        next(stream)
        client.unsubscribe("mic_on_event")
        sim.edctl("sim", "press", "1", "2")
        next(stream)
    assert [record.id for record in calls] == ["1"]


def Callback_ShouldBeReportedAndNotStopTheSignalsWhenItRaises(client, sim, monkeypatch):
    reported = []
    monkeypatch.setattr(sys, "unraisablehook", reported.append)
    delivered = []

    def fragile(record):
        if record.id == "1":
            raise ValueError("callback broke")
        delivered.append(record.id)

    client.subscribe("mic_on_event", fragile)
    with client.events("mic_on_event", timeout=WAIT_S) as stream:
        sim.edctl("sim", "press", "1", "1")
        sim.edctl("sim", "press", "1", "2")
        assert [record.id for _, record in (next(stream), next(stream))] == ["1", "2"]
    assert delivered == ["2"]
    assert len(reported) == 1
    assert isinstance(reported[0].exc_value, ValueError) and str(reported[0].exc_value) == "callback broke"
    assert "fragile" in repr(reported[0].object)


def Callback_ShouldSubscribeAndUnsubscribeInsideACallback(client, sim):
    seen = []

    def on_camera(record):
        seen.append(("camera", record.status))

    def on_mic(record):
        seen.append(("mic", record.id))
        client.unsubscribe("mic_on_event")  # its own event, while it runs
        client.subscribe("cam_status_event", on_camera)

    client.subscribe("mic_on_event", on_mic)
    with client.events("mic_on_event", "cam_status_event", timeout=WAIT_S) as stream:
        sim.edctl("sim", "press", "1", "1")
        next(stream)
        sim.edctl("sim", "press", "1", "2")
        sim.edctl("sim", "cam-status", '{"Status":5}')
        next(stream)
        next(stream)
    assert seen == [("mic", "1"), ("camera", 5)]


def Close_ShouldBeRefusedInsideACallback(client, sim):
    outcome = []
    done = threading.Event()

    def on_mic(record):
        try:
            client.close()
        except ValueError as error:
            outcome.append(str(error))
        done.set()

    client.subscribe("mic_on_event", on_mic)
    sim.edctl("sim", "press", "1", "1")
    assert done.wait(WAIT_S)
    assert outcome == ["close cannot run inside a signal callback: it would wait for that callback"]
    assert client.is_open and client.get_voting().status == 0


def Close_ShouldRefuseACallbackWhileTheClientClosesWithoutDeadlock(client, sim):
    from vask_external_device import _client
    outcome = []
    started = threading.Event()

    def on_mic(record):
        started.set()
        # Waits (bounded) until the main thread is inside close(), which then waits for this callback.
        for _ in range(WAIT_S * 1000):
            if _client._lock.locked():
                break
            threading.Event().wait(0.001)
        try:
            client.close()
        except ValueError as error:
            outcome.append(str(error))

    client.subscribe("mic_on_event", on_mic)
    sim.edctl("sim", "press", "1", "1")
    assert started.wait(WAIT_S)
    client.close()
    assert outcome == ["close cannot run inside a signal callback: it would wait for that callback"]
    assert not client.is_open
