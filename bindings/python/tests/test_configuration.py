# SPDX-License-Identifier: MIT
"""The readers and writers of the configuration files, as module functions: no Client, no bus."""
import json

import pytest

import vask_external_device as ved


def GetMicCentralInfo_ShouldReadTheFactorySettingsWithoutAClient(room):
    assert ved.get_mic_central_info() == ved.ExternalProtocolInfo(enable=False, protocol=0, ip_address="0.0.0.0")
    assert ved.get_castdeck_info() == ved.ExternalProtocolInfo(enable=False, protocol=0, ip_address="0.0.0.0")


def GetProjectorSettings_ShouldReadTheStoredProtocol(room):
    assert ved.get_projector_settings() == ved.ExternalProtocolInfo(protocol=0, ip_address="0.0.0.0")


def GetTcpControlSettings_ShouldReadTheExternalControlSection(room):
    assert ved.get_tcp_control_settings() == ved.ExternalControlInfo(
        authentication=False, port="23", baud_rate="9600", portname="ttyS0")


def GetExternalRs232ControlInfo_ShouldLeaveUnsetKeysUnset(room):
    assert ved.get_external_rs232_control_info() == ved.ExternalRs232Control(
        builtin_TTY="ttyS0", port="ttyS0", baud_rate="9600")


def MicrophoneModeReaders_ShouldReadTheFactoryFile(room):
    assert ved.get_mic_control_multiple_speakers_mode_info() == ved.MultipleSpeakersMode(multi_mode=1, cancel_mode=0)
    assert ved.get_mic_control_cancel_mode_info() == (0, ved.MicrophoneInfo())
    assert ved.get_mic_control_conflict_mode_info() == ved.MicrophoneInfo()


def GetMicControlInfo_ShouldRaiseWhenNoItemMatches(room):
    with pytest.raises(ved.Error) as raised:
        ved.get_mic_control_info()
    assert raised.value.code == -1
    with pytest.raises(ved.Error):
        ved.get_mic_group_conflict_info("1")


def GetMicControlInfo_ShouldFilterTheStoredItems(room):
    path = room.path("etc/microphone_control.json")
    document = json.loads(path.read_text())
    document["microphone_config"] = [{"gr": "1", "id": "7", "nt": "Chair", "c0": 3, "p0": 1, "l": 2},
                                     {"gr": "2", "id": "1"}]
    path.write_text(json.dumps(document))
    assert ved.get_mic_control_info("1", "") == [
        ved.MicrophoneInfo(gr="1", id="7", nt="Chair", cp_list=[ved.Cpreset(c=3, p=1)], l=2)]
    assert [item.gr for item in ved.get_mic_control_info()] == ["1", "2"]


def ZorvoMacros_ShouldRoundTripThroughTheFile(room):
    macros = ved.get_zorvo_macro_info()
    assert [(m.index, m.scenes, len(m.channels)) for m in macros] == [(1, 1, 4), (2, 1, 4), (3, 1, 4)]
    macros[1].scenes = 5
    macros[1].channels[2] = ved.MacroChannel(channel=3, enable=True, preset="7")
    ved.set_zorvo_macro_info(macros)
    assert ved.get_zorvo_macro_info() == macros
    section = json.loads(room.path("etc/external_device.json").read_text())["zorvo_config"]["Macro_2"]
    assert section["scenes"] == 5 and section["channel_3_enable"] is True and section["channel_3_preset"] == "7"
    assert ved.get_zorvo_fw_info() == ved.ExternalZorvoFwInfo(fw="", bootloader_fw="")


def Text_ShouldCrossUnchangedWhenItIsNotUtf8(room):
    macros = ved.get_zorvo_macro_info()
    macros[0].channels[0].preset = "caf\udce9"  # the byte 0xE9 alone, as surrogateescape gives it
    ved.set_zorvo_macro_info(macros)
    assert b'"caf\xe9"' in room.path("etc/external_device.json").read_bytes()
    assert ved.get_zorvo_macro_info()[0].channels[0].preset == "caf\udce9"


def SetZorvoMacroInfo_ShouldRaiseForTooFewMacros(room):
    with pytest.raises(ved.Error) as raised:
        ved.set_zorvo_macro_info(ved.get_zorvo_macro_info()[:1])
    assert raised.value.code == -1
    assert raised.value.operation == "set_zorvo_macro_info"


def Reader_ShouldRaiseNamingTheOperationWhenTheFileIsMissing(room):
    room.path("etc/external_device.json").unlink()
    with pytest.raises(ved.Error) as raised:
        ved.get_projector_settings()
    assert str(raised.value) == ("get_projector_settings failed with -1: general failure (bad file, bad JSON, "
                                 "missing section, empty result, unknown service code, bus not connected or "
                                 "library not opened)")
    assert not isinstance(raised.value, TimeoutError)


def ClientMethods_ShouldMatchTheModuleFunctionsWithoutOpening(room):
    client = ved.Client()
    assert not client.is_open
    assert client.get_tcp_control_settings() == ved.get_tcp_control_settings()
    assert client.get_zorvo_macro_info() == ved.get_zorvo_macro_info()
