# SPDX-License-Identifier: MIT
"""Each result code raised as the right exception, and the GIL released while a call waits."""
import threading

import pytest

import vask_external_device as ved


def Operation_ShouldRaiseErrorMinus3WhenTheServiceIsStopped(client, sim):
    assert sim.stop_sim() == 0  # the service announces itself offline
    with pytest.raises(ved.Error) as raised:
        client.get_voting()
    assert raised.value.code == -3
    assert not isinstance(raised.value, ved.Timeout)
    assert str(raised.value) == ("get_voting failed with -3: unknown signal event, option-table failure, "
                                 "or the service is offline")


def Operation_ShouldRaiseTimeoutWhenTheServiceDoesNotAnswer(client, sim):
    sim.edctl("sim", "reply", "query_voting", "--none")
    with pytest.raises(TimeoutError) as raised:
        client.get_voting()
    assert isinstance(raised.value, ved.Timeout) and isinstance(raised.value, ved.Error)
    assert raised.value.code == -4
    assert raised.value.operation == "get_voting"
    assert str(raised.value) == "get_voting failed with -4: the service did not answer in time (8 s)"


def Operation_ShouldLetOtherThreadsRunWhileItWaits(client, sim):
    sim.edctl("sim", "reply", "get_imshare_info", "--none")
    counted = 0
    waiting = threading.Event()
    done = threading.Event()

    def count():
        nonlocal counted
        waiting.set()
        while not done.is_set():
            counted += 1

    counter = threading.Thread(target=count)
    counter.start()
    waiting.wait()
    before = counted
    try:
        with pytest.raises(ved.Timeout):
            client.get_imshare_info()
    finally:
        during = counted - before
        done.set()
        counter.join()
    # Holding the GIL for the 8 s wait would leave the counter at a handful of switch intervals
    # (5 ms each); released, it counts for the whole wait.
    assert during > 1_000_000


def Operation_ShouldRaiseMinus2ForBadArguments(client, sim):
    with pytest.raises(ved.Error) as raised:
        client.set_castdeck_info(ved.ExternalProtocolInfo(protocol=5))
    assert raised.value.code == -2
    assert str(raised.value) == ("set_castdeck_info failed with -2: unknown selector, unsupported protocol, "
                                 "or bad arguments refused by the bus")
    with pytest.raises(ved.Error) as raised:
        client.exe_mic_control_info(7, ved.MicrophoneInfo(gr="1", id="1"))
    assert raised.value.code == -2
    # The service's own "bad request" (-1002) folds into -2 too.
    sim.edctl("sim", "reply", "mic_connection_test", '{"code":-1002}')
    with pytest.raises(ved.Error) as raised:
        client.mic_central_connection_test(ved.ExternalProtocolInfo(protocol=1, ip_address="192.0.2.41"))
    assert raised.value.code == -2


def Operation_ShouldRaiseMinus1ForAFailureTheServiceReports(client, sim):
    with pytest.raises(ved.Error) as raised:
        client.set_voting(ved.VOTING_STOP)  # no vote running: the service answers code 1
    assert raised.value.code == -1


def Operation_ShouldRaiseMinus1WhenTheClientIsNotOpen(sim):
    client = ved.Client()
    with pytest.raises(ved.Error) as raised:
        client.get_voting()
    assert raised.value.code == -1


def Open_ShouldRefuseASecondClientOfTheProcess(client):
    with pytest.raises(RuntimeError, match="another Client of this process is open"):
        ved.Client().open()
    assert client.get_voting().status == 0


def Client_ShouldOpenAgainAfterClose(sim):
    client = ved.Client()
    client.open()
    client.close()
    client.close()
    with client:
        assert client.is_open
        assert client.get_voting().status == 0
    assert not client.is_open


def Subscribe_ShouldRaiseMinus3ForAnUnknownEvent(client):
    with pytest.raises(ved.Error) as raised:
        client.subscribe("no_such_event", print)
    assert raised.value.code == -3 and raised.value.operation == "subscribe"
    with pytest.raises(ved.Error):
        client.unsubscribe("no_such_event")
    with pytest.raises(ved.Error):
        client.events("mic_on_event", "no_such_event")
