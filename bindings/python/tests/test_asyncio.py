# SPDX-License-Identifier: MIT
"""Signals through the asyncio async iterator."""
import asyncio

import pytest

import vask_external_device as ved
from voting_steps import REPORTS, run_vote, tally

WAIT_S = 10
BURST = 10000


@pytest.mark.asyncio
async def AEvents_ShouldYieldTheReportsOfAWholeVote(client, sim):
    received = []
    async with client.aevents("voting_results_event") as stream:
        # The operations block: they run in a worker thread while the loop takes the signals.
        driving = asyncio.create_task(asyncio.to_thread(run_vote, client, sim))
        for _ in REPORTS:
            received.append(await asyncio.wait_for(stream.__anext__(), WAIT_S))
        await driving
    assert [event for event, _ in received] == ["voting_results_event"] * len(REPORTS)
    assert [tally(record) for _, record in received] == REPORTS


@pytest.mark.asyncio
async def AEvents_ShouldDeliverTenThousandSignalsInOrderWithoutLoss(client, sim):
    ids = []
    async with client.aevents("mic_on_event") as stream:
        emitting = asyncio.create_task(asyncio.to_thread(
            sim.emit, "mic_on_event", '{"Group":"1","Id":"%d","On":1}', BURST))
        while len(ids) < BURST:
            event, record = await asyncio.wait_for(stream.__anext__(), WAIT_S)
            assert event == "mic_on_event"
            ids.append(int(record.id))
        await emitting
        assert stream.dropped == 0
    assert ids == list(range(BURST))


@pytest.mark.asyncio
async def AEvents_ShouldEndWhenClosed(client):
    stream = client.aevents("cam_status_event")
    asyncio.get_running_loop().call_later(0.1, stream.close)
    assert [item async for item in stream] == []


@pytest.mark.asyncio
async def AEvents_ShouldRefuseAnUnknownEvent(client):
    with pytest.raises(ved.Error) as raised:
        client.aevents("no_such_event")
    assert raised.value.code == -3
