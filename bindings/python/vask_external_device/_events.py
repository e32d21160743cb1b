# SPDX-License-Identifier: MIT
"""Signals as iterators: the queues between the bus library's dispatch thread and Python."""
import asyncio
import collections
import queue
import weakref
from typing import Iterable, Tuple, Any

from . import _native

# A stream holds at most this many signals not yet taken; more are counted in `dropped`.
DEFAULT_MAXSIZE = 65536


def _check_events(events: Iterable[str]) -> Tuple[str, ...]:
    """The events asked for (every event when none is named); Error(-3) for an unknown name."""
    names = tuple(events) or _native.EVENTS
    for name in names:
        if name not in _native.EVENTS:
            from ._errors import error_for
            raise error_for("subscribe", -3)
    return names


class _Listener:
    """The table's reference to a stream: weak, so that a stream nobody holds any more is
    collected and stops listening."""

    __slots__ = ("_stream",)

    def __init__(self, stream: "_Stream") -> None:
        self._stream = weakref.ref(stream)

    def __call__(self, event: str, record: Any) -> None:
        stream = self._stream()
        if stream is not None:
            stream._put(event, record)


class _Stream:
    """What both streams share: the listener registration, the bound, the drop counter."""

    def __init__(self, events: Iterable[str], maxsize: int) -> None:
        if maxsize < 1:
            raise ValueError("maxsize must be at least 1")
        self._events = _check_events(events)
        self._maxsize = maxsize
        self._closed = False
        #: Signals dropped because `maxsize` were waiting to be taken.
        self.dropped = 0
        self._listener = _Listener(self)
        for name in self._events:
            _native._listen(name, self._listener)

    def _put(self, event: str, record: Any) -> None:
        raise NotImplementedError

    def close(self) -> None:
        """Stops receiving signals; signals already received can still be taken."""
        if self._closed:
            return
        self._closed = True
        for name in self._events:
            _native._unlisten(name, self._listener)
        self._closed_hook()

    def _closed_hook(self) -> None:
        pass

    def __del__(self) -> None:
        try:
            self.close()
        except Exception:  # the interpreter may be shutting down
            pass


class EventStream(_Stream):
    """An iterator of (event, record) pairs; see Client.events()."""

    def __init__(self, events: Iterable[str], timeout: "float | None", maxsize: int = DEFAULT_MAXSIZE) -> None:
        self._queue: "queue.SimpleQueue[Tuple[str, Any]]" = queue.SimpleQueue()
        self._timeout = timeout
        super().__init__(events, maxsize)

    def _put(self, event: str, record: Any) -> None:
        if self._queue.qsize() >= self._maxsize:
            self.dropped += 1
            return
        self._queue.put((event, record))

    def __iter__(self) -> "EventStream":
        return self

    def __next__(self) -> Tuple[str, Any]:
        """The next signal; ends when the stream is closed and empty, or when no signal came
        within `timeout` seconds."""
        try:
            if self._closed:
                return self._queue.get_nowait()
            return self._queue.get(timeout=self._timeout)
        except queue.Empty:
            raise StopIteration from None

    def __enter__(self) -> "EventStream":
        return self

    def __exit__(self, *exc_info: object) -> None:
        self.close()


class AsyncEventStream(_Stream):
    """An async iterator of (event, record) pairs; see Client.aevents().

    The dispatch thread appends to a buffer and wakes the event loop with
    loop.call_soon_threadsafe only when no wake-up is pending, so a burst costs one wake-up, not
    one per signal."""

    def __init__(self, events: Iterable[str], maxsize: int = DEFAULT_MAXSIZE) -> None:
        self._loop = asyncio.get_running_loop()
        self._buffer: "collections.deque[Tuple[str, Any]]" = collections.deque()
        self._wake_pending = False
        self._waiter: "asyncio.Future[None] | None" = None
        super().__init__(events, maxsize)

    def _put(self, event: str, record: Any) -> None:
        # On the dispatch thread, with the GIL held.
        if len(self._buffer) >= self._maxsize:
            self.dropped += 1
            return
        self._buffer.append((event, record))
        if not self._wake_pending:
            self._wake_pending = True
            try:
                self._loop.call_soon_threadsafe(self._wake)
            except RuntimeError:  # the loop is closed: nobody is left to take the signal
                self._wake_pending = False

    def _wake(self) -> None:
        # On the event loop's thread.
        self._wake_pending = False
        waiter = self._waiter
        if waiter is not None and not waiter.done():
            waiter.set_result(None)

    def _closed_hook(self) -> None:
        if self._loop.is_closed():
            return
        try:
            self._loop.call_soon_threadsafe(self._wake)
        except RuntimeError:
            pass

    def __aiter__(self) -> "AsyncEventStream":
        return self

    async def __anext__(self) -> Tuple[str, Any]:
        """The next signal; ends when the stream is closed and empty."""
        while not self._buffer:
            if self._closed:
                raise StopAsyncIteration
            self._waiter = self._loop.create_future()
            try:
                await self._waiter
            finally:
                self._waiter = None
        return self._buffer.popleft()

    async def aclose(self) -> None:
        """close(), for `async with contextlib.aclosing(...)`."""
        self.close()

    async def __aenter__(self) -> "AsyncEventStream":
        return self

    async def __aexit__(self, *exc_info: object) -> None:
        self.close()
