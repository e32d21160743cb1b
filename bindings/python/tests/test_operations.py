# SPDX-License-Identifier: MIT
"""Every family of operations through a Client against the simulator, checked on both sides: what
the method returns, and what reached the service or the file."""
import json

import pytest

import vask_external_device as ved


def applied(room, section):
    """What the simulator last applied of `section` (None when nothing)."""
    return json.loads(room.edctl("sim", "applied", section).stdout)


def GetVoting_ShouldFollowTheVoteThroughItsSteps(client, sim):
    assert client.get_voting().status == 0
    assert client.set_voting(ved.VOTING_ENTER) == ved.VotingInfo(status=ved.VOTING_ENTER)
    client.set_voting(ved.VotingInfo(status=ved.VOTING_START))
    sim.edctl("sim", "vote", "agree")
    sim.edctl("sim", "vote", "abandon")
    running = client.get_voting()
    assert (running.status, running.agree, running.disagree, running.abandon, running.total) == (2, 1, 0, 1, 2)
    stopped = client.set_voting(ved.VOTING_STOP)
    assert (stopped.status, stopped.agree, stopped.abandon, stopped.total) == (3, 1, 1, 2)
    queried = client.set_voting(ved.VOTING_QUERY)
    assert queried == client.get_voting()
    client.set_voting(ved.VOTING_EXIT)
    assert client.get_voting().status == 0


def MicCentral_ShouldTestStoreAndReportTheConnection(client, sim):
    settings = ved.ExternalProtocolInfo(enable=True, protocol=1, ip_address="192.0.2.41", username="admin",
                                        password="secret", port="")
    client.mic_central_connection_test(settings)
    assert client.get_mic_central_connection_state() == 1
    client.set_mic_central_info(settings)
    stored = client.get_mic_central_info()
    assert (stored.enable, stored.protocol, stored.ip_address, stored.username, stored.password) == (
        True, 1, "192.0.2.41", "admin", "secret")
    assert applied(sim, "miccentral_control")["protocol"] == "tcp"


def MicOnList_ShouldListThePressedMicrophones(client, sim):
    assert client.get_mic_on_list() == []
    sim.edctl("sim", "press", "1", "7")
    sim.edctl("sim", "press", "2", "3")
    assert client.get_mic_on_list() == [ved.MicNode(group="1", id="7", on=True), ved.MicNode(group="2", id="3", on=True)]


def Rs232DeviceList_ShouldListTheServicesPorts(client):
    assert client.get_external_rs232_device_list() == [
        ved.ExternalRs232Info(number=0, port="ttyS0", description="RS232 port 1"),
        ved.ExternalRs232Info(number=1, port="ttyUSB0", description="USB serial adapter")]


def Imshare_ShouldKeepTheFlag(client):
    client.set_imshare_info(ved.ImshareInfo(hid=True))
    assert client.get_imshare_info() == ved.ImshareInfo(hid=True)
    client.set_imshare_info(ved.ImshareInfo(hid=False))
    assert client.get_imshare_info() == ved.ImshareInfo(hid=False)


def Projector_ShouldStoreEachProtocolAndTellTheService(client, sim):
    client.set_pjlink_settings("192.0.2.40", "secret")
    assert client.get_projector_settings() == ved.ExternalProtocolInfo(protocol=24, ip_address="192.0.2.40",
                                                                       password="secret")
    assert applied(sim, "projector_control")["protocol"] == "pjlink"
    client.pjlink_test("192.0.2.40", "secret")
    client.set_hitachi_tcp_settings("192.0.2.42", "pw")
    assert client.get_projector_settings().protocol == 1
    client.hitachi_tcp_test("192.0.2.42", "pw")
    client.set_hitachi_rs232_settings("115200")
    assert client.get_projector_settings() == ved.ExternalProtocolInfo(protocol=21, ip_address="0.0.0.0",
                                                                       baud_rate="115200")
    client.set_none_settings()
    assert client.get_projector_settings().protocol == 0


def TcpControl_ShouldStoreAndTellTheService(client, sim):
    client.set_tcp_control_settings(True, "2323")
    assert client.get_tcp_control_settings() == ved.ExternalControlInfo(authentication=True, port="2323",
                                                                        baud_rate="9600", portname="ttyS0")
    assert applied(sim, "external_control")["tcp"] == {"authentication": True, "port": "2323"}


def Castdeck_ShouldStoreAndTellTheService(client, sim):
    client.set_castdeck_info(ved.ExternalProtocolInfo(enable=True, protocol=21, baud_rate="9600"))
    assert client.get_castdeck_info() == ved.ExternalProtocolInfo(enable=True, protocol=21, ip_address="0.0.0.0",
                                                                  baud_rate="9600")
    assert applied(sim, "castdeck_control")["protocol"] == "rs232"


def MicControlItems_ShouldBeStoredSentExecutedAndDeleted(client, sim):
    item = ved.MicrophoneInfo(gr="1", id="7", nt="Chair", cp_list=[ved.Cpreset(c=3, p=1)], l=2)
    client.set_mic_control_info(item)
    assert client.get_mic_control_info("1", "7") == [item]
    client.exe_mic_control_info(ved.MIC_CONTROL_EXECUTE, item)
    assert applied(sim, "executed") == {"gr": "1", "id": "7", "nt": "Chair", "c0": 3, "p0": 1, "l": 2,
                                        "simulated": False}
    client.exe_mic_control_info(ved.MIC_CONTROL_SIMULATE, item)
    client.exe_mic_control_info(ved.MIC_CONTROL_HOME, ved.MicrophoneInfo())
    client.del_mic_control_info(item)
    with pytest.raises(ved.Error):
        client.get_mic_control_info("1", "7")


def MicGroupConflict_ShouldBeStoredWithoutTheId(client, sim):
    item = ved.MicrophoneInfo(gr="2", id="9", cp_list=[ved.Cpreset(c=1, p=4)])
    client.set_mic_group_conflict_info(item)
    assert client.get_mic_group_conflict_info("2") == [ved.MicrophoneInfo(gr="2", cp_list=[ved.Cpreset(c=1, p=4)])]
    client.del_mic_group_conflict_info(item)
    with pytest.raises(ved.Error):
        client.get_mic_group_conflict_info("2")


def MicModes_ShouldBeStoredAndApplied(client, sim):
    client.set_mic_control_conflict_mode_info(ved.MicrophoneInfo(l=1, o=2))
    assert client.get_mic_control_conflict_mode_info() == ved.MicrophoneInfo(l=1, o=2)
    client.set_mic_control_cancel_mode_info(3, ved.MicrophoneInfo(b=1))
    assert client.get_mic_control_cancel_mode_info() == (3, ved.MicrophoneInfo(b=1))
    client.set_mic_control_multiple_speakers_mode_info(ved.MultipleSpeakersMode(multi_mode=4, cancel_mode=1))
    assert client.get_mic_control_multiple_speakers_mode_info() == ved.MultipleSpeakersMode(multi_mode=4,
                                                                                            cancel_mode=1)
    assert applied(sim, "microphone_multiple_speakers_mode") == {"multi_mode": 4, "cancel_mode": 1}


def Rs232Control_ShouldStoreAndTellTheService(client, sim):
    options = ved.ExternalRs232Control(builtin_TTY="ttyS1", ignored_TTYUSB_A=0, enable_USB_zorvo=True,
                                       port="ttyS1", baud_rate="19200", focus_command="F1")
    client.set_external_rs232_control_info(options)
    assert client.get_external_rs232_control_info() == options
    assert applied(sim, "external_rs232_config")["focus_command"] == "F1"


def ZorvoGotoMacro_ShouldRunAMacroTheModelHas(client, sim):
    client.zorvo_goto_macro(1)
    with pytest.raises(ved.Error) as raised:
        client.zorvo_goto_macro(99)  # the service's "no such macro" is a general failure
    assert raised.value.code == -1
