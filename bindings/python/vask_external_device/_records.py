# SPDX-License-Identifier: MIT
"""The library's records as Python classes.

Each class is named after the C++ record, in CamelCase and without the ``ed_`` prefix
(``VotingInfo`` is ``ed_voting_info``, ``SigMicOnData`` is ``sig_mic_on_data``), has the record's
members as attributes in the record's order, a keyword constructor with the record's defaults,
``==``, a readable ``repr`` and ``to_dict()``. Lists of records are Python lists.
"""
from dataclasses import asdict, dataclass, field
from typing import Any, Dict, List


class _Record:
    __slots__ = ()

    def to_dict(self) -> Dict[str, Any]:
        """The members as a dict, nested records and lists of records included."""
        return asdict(self)


def _record(cls):
    return dataclass(kw_only=True, slots=True)(cls)


@_record
class _VoteCounts(_Record):
    """The members that the vote's reply and its signal share."""
    status: int = 0
    agree: int = 0
    disagree: int = 0
    abandon: int = 0
    total: int = 0
    time: int = 0


@_record
class _MicrophoneState(_Record):
    """The members that the microphone and camera signals share."""
    status: int = 0
    group: str = ""
    id: str = ""
    on: bool = False


@_record
class VotingInfo(_VoteCounts):
    """ed_voting_info: the state of a delegate vote; a value the reply lacks is -1.

    On input to Client.set_voting, ``status`` selects the action (VOTING_ENTER, ...)."""


@_record
class SigMicOnData(_MicrophoneState):
    """sig_mic_on_data: a "mic_on_event" or "non_list_mic_event" signal.

    ``group`` and ``id`` are "" when missing; ``on`` is true when "On" is 1. ``status`` is not set
    by the library's parser and is always 0 here."""


@_record
class SigVotingResultsData(_VoteCounts):
    """sig_voting_results_data: a "voting_results_event" signal."""


@_record
class SigInfoDataChangeData(_Record):
    """sig_info_data_change_data: an "info_data_change_event" signal."""
    type: int = 0
    data: int = 0


@_record
class SigCamStatusData(_MicrophoneState):
    """sig_cam_status_data: a "cam_status_event" signal."""


@_record
class MicNode(_Record):
    """mic_node: one microphone of the mic-on list."""
    group: str = ""
    id: str = ""
    on: bool = False


@_record
class ExternalRs232Info(_Record):
    """external_rs232_info: one RS232 serial device the service sees (number -1 when missing)."""
    number: int = 0
    port: str = ""
    description: str = ""


@_record
class ImshareInfo(_Record):
    """imshare_info: the image-share flag."""
    hid: bool = False


@_record
class ExternalProtocolInfo(_Record):
    """external_protocol_info: one control device (mic central, media station, projector).

    ``protocol`` is a number of the protocol table (-1: reading failed or name unknown)."""
    enable: bool = False
    protocol: int = 0
    ip_address: str = ""
    username: str = ""
    password: str = ""
    baud_rate: str = ""
    port: str = ""


@_record
class ExternalControlInfo(_Record):
    """external_control_info: external control of the box over TCP and RS232."""
    authentication: bool = False
    port: str = ""
    baud_rate: str = ""
    portname: str = ""


@_record
class Cpreset(_Record):
    """cpreset: one (c, p) pair of a microphone item; -1 marks a member as not set."""
    c: int = -1
    p: int = -1


@_record
class MicrophoneInfo(_Record):
    """microphone_info: a microphone control, group-conflict, default or general-conflict item.

    Empty strings and negative numbers mean "not set"; ``tag`` is the application's own."""
    tag: int = 0
    gr: str = ""
    id: str = ""
    nt: str = ""
    cp_list: List[Cpreset] = field(default_factory=list)
    l: int = -1  # noqa: E741 (the record's member name)
    o: int = -1
    b: int = -1
    s: int = -1


@_record
class MultipleSpeakersMode(_Record):
    """multiple_speakers_mode: the two microphone mode numbers."""
    multi_mode: int = 1
    cancel_mode: int = 0


@_record
class ExternalRs232Control(_Record):
    """external_rs232_control: the RS232 control options; "" and -1 mean unset."""
    builtin_TTY: str = ""
    ignored_TTYUSB_A: int = -1
    ignored_TTYUSB_B: int = -1
    disable_USB_camctrl: bool = False
    enable_USB_wenk9: bool = False
    enable_USB_zorvo: bool = False
    port: str = ""
    baud_rate: str = ""
    default_command: str = ""
    focus_command: str = ""
    conflict_command: str = ""


@_record
class MacroChannel(_Record):
    """macro_channel: one channel of a remote-controller macro."""
    channel: int = 0
    enable: bool = False
    preset: str = "1"


@_record
class ExternalZorvoMacroInfo(_Record):
    """external_zorvo_macro_info: one remote-controller macro."""
    index: int = 0
    scenes: int = 0
    channels: List[MacroChannel] = field(default_factory=list)


@_record
class ExternalZorvoFwInfo(_Record):
    """external_zorvo_fw_info: the remote controller's two version texts."""
    fw: str = ""
    bootloader_fw: str = ""
