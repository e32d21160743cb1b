# SPDX-License-Identifier: MIT
"""One whole vote driven through the library, and the reports the simulator sends for it."""
import vask_external_device as ved

# (status, agree, disagree, abandon, total) of each "voting_results_event": entered, started, an
# agree, a disagree, stopped, closed.
REPORTS = [(1, 0, 0, 0, 0), (2, 0, 0, 0, 0), (2, 1, 0, 0, 1), (2, 1, 1, 0, 2), (3, 1, 1, 0, 2), (0, 0, 0, 0, 0)]


def run_vote(client, room):
    client.set_voting(ved.VOTING_ENTER)
    client.set_voting(ved.VOTING_START)
    room.edctl("sim", "vote", "agree")
    room.edctl("sim", "vote", "disagree")
    client.set_voting(ved.VOTING_STOP)
    client.set_voting(ved.VOTING_EXIT)


def tally(record):
    """The record's counts; Time is left out, it depends on how long the vote took."""
    assert isinstance(record, ved.SigVotingResultsData)
    return (record.status, record.agree, record.disagree, record.abandon, record.total)
