# SPDX-License-Identifier: MIT
"""vask_external_device: the external devices of a conference-room media box, from Python.

This package wraps the C++ library libvask_external_device (it does not re-implement it): every
application operation of the library, with the library's exact behaviour, plus the service's
signals as callbacks, iterators and asyncio async iterators.

QUICK START
    import vask_external_device as ved

    with ved.Client() as client:                 # ed_init ... ed_release
        vote = client.get_voting()               # a VotingInfo
        print(vote.status, vote.agree, vote.disagree)
        for event, record in client.events("voting_results_event", timeout=30):
            print(record.total)

NAMES
    Each operation ed_NAME of the library is the method Client.NAME. The operations that need no
    bus (the readers and writers of the configuration files) are also module functions of the same
    name (get_mic_central_info(), get_zorvo_macro_info(), ...): they work without a Client.
    Records are classes named like the C++ records in CamelCase without the "ed_" prefix:
    VotingInfo (ed_voting_info), MicNode (mic_node), ExternalProtocolInfo, ExternalControlInfo,
    ExternalRs232Info, ExternalRs232Control, ImshareInfo, MicrophoneInfo, Cpreset,
    MultipleSpeakersMode, MacroChannel, ExternalZorvoMacroInfo, ExternalZorvoFwInfo, and the signal
    records SigMicOnData, SigVotingResultsData, SigInfoDataChangeData, SigCamStatusData. They take
    keyword arguments, compare with ==, print readably and give to_dict().

RESULTS
    A negative result raises Error: ``code`` is the int the library returned, ``operation`` the
    method's name, and the message says what the code means (-1 general failure, -2 bad selector
    or arguments, -3 unknown event or service offline). -4 (no answer within 8 s) raises Timeout,
    a subclass of both Error and the built-in TimeoutError.

THREADS
    Every call releases the GIL while the library works, so other threads run while one waits for
    the service (at most 8 s) or for the configuration lock. Signal callbacks run on the bus
    library's dispatch thread and take the GIL; an exception in one is reported through
    sys.unraisablehook and does not stop the dispatch thread.

ENVIRONMENT
    VASK_BUS_URL (default mqtt://127.0.0.1:1883), VASK_BUS_USERNAME, VASK_BUS_PASSWORD,
    VASK_BUS_CAFILE, VASK_BUS_NAMESPACE choose the broker; VASK_SYSROOT prefixes the box's fixed
    paths (/etc/external_device.json, ...); TULO_LOG_LEVEL and TULO_LOG_TARGET the log lines.
    See man 3 libvask_external_device.
"""
from . import _native
from ._client import Client
from ._errors import Error, Timeout
from ._events import AsyncEventStream, EventStream
from ._native import (
    EVENTS,
    OPT_SIGNAL_PARSE,
    get_castdeck_info,
    get_external_rs232_control_info,
    get_mic_central_info,
    get_mic_control_cancel_mode_info,
    get_mic_control_conflict_mode_info,
    get_mic_control_info,
    get_mic_control_multiple_speakers_mode_info,
    get_mic_group_conflict_info,
    get_projector_settings,
    get_tcp_control_settings,
    get_zorvo_fw_info,
    get_zorvo_macro_info,
    set_opt,
    set_zorvo_macro_info,
)
from ._records import (
    Cpreset,
    ExternalControlInfo,
    ExternalProtocolInfo,
    ExternalRs232Control,
    ExternalRs232Info,
    ExternalZorvoFwInfo,
    ExternalZorvoMacroInfo,
    ImshareInfo,
    MacroChannel,
    MicNode,
    MicrophoneInfo,
    MultipleSpeakersMode,
    SigCamStatusData,
    SigInfoDataChangeData,
    SigMicOnData,
    SigVotingResultsData,
    VotingInfo,
)

# The actions of Client.set_voting (VotingInfo.status on input); any other number queries.
VOTING_ENTER = 0
VOTING_STOP = 1
VOTING_START = 2
VOTING_EXIT = 3
VOTING_QUERY = 4

# The actions of Client.exe_mic_control_info.
MIC_CONTROL_SIMULATE = 0
MIC_CONTROL_EXECUTE = 1
MIC_CONTROL_HOME = 2

__all__ = [name for name in dir() if not name.startswith("_")]

# The public classes are documented and printed as members of the package.
for _name in __all__:
    if isinstance(globals()[_name], type):
        globals()[_name].__module__ = __name__
