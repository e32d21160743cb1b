# SPDX-License-Identifier: MIT
"""Client: the library opened, its operations, and its signals."""
import atexit
import threading
from typing import Any, Callable, Dict, Optional

from . import _native
from ._errors import error_for
from ._events import DEFAULT_MAXSIZE, AsyncEventStream, EventStream

_lock = threading.Lock()
_open_client: "Optional[Client]" = None


class _Subscription:
    """The listener behind Client.subscribe: calls callback(record)."""

    __slots__ = ("callback",)

    def __init__(self, callback: Callable[[Any], Any]) -> None:
        self.callback = callback

    def __call__(self, event: str, record: Any) -> None:
        self.callback(record)

    def __repr__(self) -> str:
        return f"<subscription of {self.callback!r}>"


class Client(_native.ClientBase):
    """The library, opened: every application operation as a method, and the service's signals.

    The library is process-wide (one bus client), so one Client may be open at a time in a
    process. ``with Client() as client:`` opens it (ed_init: connects to the broker named by
    VASK_BUS_URL, waiting up to 2 s, then goes on trying in the background) and closes it at the
    end (ed_release); open() and close() do the same explicitly. A process that exits with a
    Client open closes it on the way out.

    Operations: each ``ed_NAME`` of the library is the method ``NAME`` (``get_voting()``,
    ``set_pjlink_settings(ip, password)``, ...). Arguments and results are the records of this
    package (VotingInfo, MicrophoneInfo, ...) and lists of them. A negative result raises Error
    (with ``code``), -4 raises Timeout. A call releases the GIL while it waits for the service (at
    most 8 s), so other threads run meanwhile. The operations that need no bus are also module
    functions.

    Signals: when opened, the Client registers the module's callback for the five events
    ("mic_on_event", "voting_results_event", "info_data_change_event", "cam_status_event",
    "non_list_mic_event"); what reaches Python is chosen by subscribe(), events() and aevents().
    Callbacks and iterators get the event's record (SigMicOnData, SigVotingResultsData,
    SigInfoDataChangeData, SigCamStatusData), or the raw JSON text when set_opt(OPT_SIGNAL_PARSE, 0)
    is in force. A signal whose payload the library's parser refuses is dropped.
    """

    def __init__(self) -> None:
        super().__init__()
        self._open = False
        self._subscriptions: Dict[str, _Subscription] = {}

    # ---- lifecycle

    @property
    def is_open(self) -> bool:
        """True between open() and close()."""
        return self._open

    def open(self) -> "Client":
        """Opens the library (ed_init) and registers the signal callback; returns the Client.

        Opening an open Client does nothing. Raises RuntimeError when another Client of the
        process is open, Error(-1) when the bus library cannot be started. ValueError inside a
        signal callback."""
        global _open_client
        _native._refuse_in_callback("open")  # before the lock, which close() holds while it waits
        with _lock:
            if self._open:
                return self
            if _open_client is not None:
                raise RuntimeError("another Client of this process is open; the library is process-wide")
            _native._open()
            self._open = True
            _open_client = self
        return self

    def close(self) -> None:
        """Closes the library (ed_release) after unregistering the signal callback (waiting, up
        to the end of a running callback, with the GIL released) and drops this Client's
        subscribe() callbacks. Closing a closed Client does nothing. Raises ValueError inside a
        signal callback, where it would wait for that very callback."""
        global _open_client
        _native._refuse_in_callback("close")  # before the lock, which close() holds while it waits
        with _lock:
            if not self._open:
                return
            _native._close()
            self._open = False
            _open_client = None
            for event, subscription in self._subscriptions.items():
                _native._unlisten(event, subscription)
            self._subscriptions.clear()

    def __enter__(self) -> "Client":
        return self.open()

    def __exit__(self, *exc_info: object) -> None:
        self.close()

    def __repr__(self) -> str:
        return f"<vask_external_device.Client {'open' if self._open else 'closed'}>"

    # ---- signals

    set_opt = staticmethod(_native.set_opt)

    def subscribe(self, event: str, callback: Callable[[Any], Any]) -> None:
        """Calls callback(record) for each signal of `event`, replacing an earlier callback of this
        Client for it.

        The callback runs on the bus library's dispatch thread with the GIL held, one signal at a
        time in arrival order; every later signal waits until it returns, so do not block in it.
        It may call operations, subscribe and unsubscribe. An exception it raises is reported
        through sys.unraisablehook and the next signal is delivered as usual. Raises Error(-3) for
        an event that is not one of the five."""
        subscription = _Subscription(callback)
        _native._listen(event, subscription)
        previous = self._subscriptions.pop(event, None)
        if previous is not None:
            _native._unlisten(event, previous)
        self._subscriptions[event] = subscription

    def unsubscribe(self, event: str) -> None:
        """Stops calling this Client's callback for `event` (nothing happens when it has none).
        Safe inside a callback, also the event's own. Raises Error(-3) for an unknown event."""
        if event not in _native.EVENTS:
            raise error_for("unsubscribe", -3)
        subscription = self._subscriptions.pop(event, None)
        if subscription is not None:
            _native._unlisten(event, subscription)

    def events(self, *events: str, timeout: Optional[float] = None,
               maxsize: int = DEFAULT_MAXSIZE) -> EventStream:
        """An iterator of (event, record) pairs for the events named (every event when none is).

        Signals are queued from the moment it is made; iteration waits (GIL released) for the
        next one and ends when none came within `timeout` seconds (None: waits for ever). At most
        `maxsize` signals wait to be taken; more are counted in its ``dropped``. Close it (or use
        it in a ``with`` block) to stop queueing. Raises Error(-3) for an unknown event."""
        return EventStream(events, timeout, maxsize)

    def aevents(self, *events: str, maxsize: int = DEFAULT_MAXSIZE) -> AsyncEventStream:
        """The same as events() as an async iterator for the running asyncio loop: signals are
        handed to the loop with loop.call_soon_threadsafe. Call it inside a coroutine; bound a wait
        with asyncio.wait_for. Raises Error(-3) for an unknown event."""
        return AsyncEventStream(events, maxsize)


@atexit.register
def _close_on_exit() -> None:
    # The dispatch thread must not wait for the GIL of an interpreter that is going away.
    client = _open_client
    if client is not None:
        client.close()
