# SPDX-License-Identifier: MIT
"""The record classes: keyword construction, equality, repr, to_dict, and the check of what goes in."""
import pytest

import vask_external_device as ved


def VotingInfo_ShouldTakeKeywordsAndCompareByValue():
    vote = ved.VotingInfo(status=2, agree=3)
    assert vote == ved.VotingInfo(status=2, agree=3, disagree=0, abandon=0, total=0, time=0)
    assert vote != ved.VotingInfo(status=2, agree=4)
    with pytest.raises(TypeError):
        ved.VotingInfo(2, 3)  # keywords only: the members are too many to pass by position safely


def Repr_ShouldNameTheClassAndEveryMember():
    assert repr(ved.Cpreset(c=3, p=1)) == "Cpreset(c=3, p=1)"
    assert repr(ved.MicNode(group="1", id="7", on=True)) == "MicNode(group='1', id='7', on=True)"


def ToDict_ShouldNestRecordsAndLists():
    item = ved.MicrophoneInfo(gr="1", id="7", cp_list=[ved.Cpreset(c=3, p=1)], l=2)
    assert item.to_dict() == {"tag": 0, "gr": "1", "id": "7", "nt": "", "cp_list": [{"c": 3, "p": 1}],
                              "l": 2, "o": -1, "b": -1, "s": -1}


def Defaults_ShouldBeTheLibrarysDefaults():
    assert ved.MicrophoneInfo() == ved.MicrophoneInfo(tag=0, gr="", id="", nt="", cp_list=[], l=-1, o=-1, b=-1, s=-1)
    assert ved.MultipleSpeakersMode() == ved.MultipleSpeakersMode(multi_mode=1, cancel_mode=0)
    assert ved.ExternalRs232Control().ignored_TTYUSB_A == -1
    assert ved.MacroChannel().preset == "1"
    # Lists are not shared between records.
    first, second = ved.MicrophoneInfo(), ved.MicrophoneInfo()
    first.cp_list.append(ved.Cpreset(c=1, p=1))
    assert second.cp_list == []


def Operation_ShouldRefuseAMemberOfTheWrongTypeNamingIt(room):
    macros = ved.get_zorvo_macro_info()
    macros[0].channels[0].preset = 5
    with pytest.raises(TypeError, match=r"ExternalZorvoMacroInfo\.channels: MacroChannel\.preset: expected a str"):
        ved.set_zorvo_macro_info(macros)


def Operation_ShouldRefuseANumberTooLargeForTheRecord(room):
    macros = ved.get_zorvo_macro_info()
    macros[0].scenes = 2 ** 40
    with pytest.raises(TypeError, match=r"ExternalZorvoMacroInfo\.scenes: 1099511627776 does not fit"):
        ved.set_zorvo_macro_info(macros)


def Operation_ShouldRefuseAnObjectWithoutTheMembers(room):
    with pytest.raises(TypeError, match=r"MacroChannel\.channel: .*has no attribute 'channel'"):
        ved.set_zorvo_macro_info([ved.ExternalZorvoMacroInfo(index=1, scenes=1, channels=[object()])])
