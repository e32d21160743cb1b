#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""voting_console: runs a delegate vote and prints the tallies as the votes arrive (with asyncio).

    voting_console.py [--votes N] [--timeout SECONDS]

Opens a vote, starts it, prints "voting_console: vote running", then one line per vote counted.
After N votes (default 3) it stops the vote, prints the result and closes the vote; after SECONDS
(default 30) without N votes it does the same and exits with status 1.
"""
import argparse
import asyncio
import sys

import vask_external_device as ved

# The status the service reports while votes are counted.
RUNNING = 2


async def count_votes(stream: ved.AsyncEventStream, votes: int) -> None:
    # The service reports every change of the vote; only the counted votes are printed, so the
    # output does not depend on when the other reports arrive.
    async for _event, vote in stream:
        if vote.status != RUNNING or vote.total == 0:
            continue
        print(f"tally {vote.total}: agree {vote.agree}, disagree {vote.disagree}, abandon {vote.abandon}",
              flush=True)
        if vote.total >= votes:
            return


async def run(votes: int, timeout: float) -> int:
    with ved.Client() as client:
        # Made before the vote starts, so that no vote is missed.
        async with client.aevents("voting_results_event") as stream:
            try:
                # The operations wait for the service: run them off the event loop.
                await asyncio.to_thread(client.set_voting, ved.VOTING_ENTER)
                await asyncio.to_thread(client.set_voting, ved.VOTING_START)
            except ved.Error as error:
                print(f"voting_console: the vote cannot be started ({error.code})", file=sys.stderr)
                return 1
            print("voting_console: vote running", flush=True)
            try:
                await asyncio.wait_for(count_votes(stream, votes), timeout)
                complete = True
            except asyncio.TimeoutError:
                complete = False
        status = 0 if complete else 1
        try:
            # Stopping answers the final result.
            result = await asyncio.to_thread(client.set_voting, ved.VOTING_STOP)
            print(f"result: agree {result.agree}, disagree {result.disagree}, abandon {result.abandon}, "
                  f"total {result.total}")
        except ved.Error as error:
            print(f"voting_console: the vote cannot be stopped ({error.code})", file=sys.stderr)
            status = 1
        try:
            await asyncio.to_thread(client.set_voting, ved.VOTING_EXIT)
            print("voting_console: vote closed")
        except ved.Error:
            pass
        return status


def main() -> int:
    parser = argparse.ArgumentParser(prog="voting_console")
    parser.add_argument("--votes", type=int, default=3)
    parser.add_argument("--timeout", type=float, default=30)
    options = parser.parse_args()
    return asyncio.run(run(options.votes, options.timeout))


if __name__ == "__main__":
    sys.exit(main())
