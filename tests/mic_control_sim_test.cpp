// SPDX-License-Identifier: MIT
// Microphone control through edctl, the library and the simulator.
#include "config_sim_fixture.h"

class MicControlSimTest : public ConfigSimTest {};

TEST_F(MicControlSimTest, ItemsSetExecutedAndDeleted_ShouldReachTheServiceAfterTheFile)
{
    auto chair = edctl({"mic-control", "set", "gr=1", "id=7", "nt=Chair", "c0=3", "p0=1", "l=2"});
    EXPECT_EQ(chair.exit_code, 0) << chair.err;
    auto delegate = edctl({"mic-control", "set", "{\"gr\":\"1\",\"id\":\"8\",\"nt\":\"Delegate\",\"c0\":4,\"p0\":2}"});
    EXPECT_EQ(delegate.exit_code, 0) << delegate.err;
    EXPECT_EQ(edctl({"mic-control", "list"}).out, "gr=1 id=7 nt=Chair c0=3 p0=1 l=2\ngr=1 id=8 nt=Delegate c0=4 p0=2\n");
    EXPECT_EQ(edctl({"--json", "mic-control", "list", "gr=1", "id=8"}).out,
              "[{\"gr\":\"1\",\"id\":\"8\",\"nt\":\"Delegate\",\"c0\":4,\"p0\":2}]\n");
    // The service found each item in the file when it was told.
    EXPECT_EQ(applied("microphone_config"), section_of(read_file(microphone_path()), "microphone_config"));

    EXPECT_EQ(edctl({"mic-control", "execute", "gr=1", "id=7"}).exit_code, 0);
    EXPECT_EQ(applied("executed"), "{\"gr\":\"1\",\"id\":\"7\",\"nt\":\"Chair\",\"c0\":3,\"p0\":1,\"l\":2,\"simulated\":false}");
    EXPECT_EQ(edctl({"mic-control", "simulate", "gr=1", "id=8"}).exit_code, 0);
    EXPECT_EQ(edctl({"mic-control", "simulate", "gr=5", "id=5"}).exit_code, 1); // not registered
    EXPECT_EQ(edctl({"mic-control", "home"}).exit_code, 0);

    EXPECT_EQ(edctl({"mic-control", "delete", "gr=1", "id=8"}).exit_code, 0);
    EXPECT_EQ(edctl({"mic-control", "list"}).out, "gr=1 id=7 nt=Chair c0=3 p0=1 l=2\n");
    auto calls = edctl({"sim", "calls"}).out;
    EXPECT_NE(calls.find("update_microphone_control_item {\"gr\":\"1\",\"id\":\"7\",\"nt\":\"Chair\",\"c0\":3,\"p0\":1,\"l\":2}\n"),
              std::string::npos)
        << calls;
    EXPECT_NE(calls.find("execute_microphone_control_home \n"), std::string::npos) << calls;
    EXPECT_NE(calls.find("delete_microphone_control_item {\"gr\":\"1\",\"id\":\"8\"}\n"), std::string::npos) << calls;
}

TEST_F(MicControlSimTest, GroupConflicts_ShouldBeListedSetAndDeleted)
{
    EXPECT_EQ(edctl({"mic-control", "conflict-set", "gr=3", "c0=1", "p0=1"}).exit_code, 0);
    EXPECT_EQ(edctl({"mic-control", "conflict-set", "gr=4", "c0=2", "p0=2"}).exit_code, 0);
    EXPECT_EQ(edctl({"mic-control", "conflicts"}).out, "gr=3 c0=1 p0=1\ngr=4 c0=2 p0=2\n");
    EXPECT_EQ(edctl({"mic-control", "conflicts", "gr=4"}).out, "gr=4 c0=2 p0=2\n");
    EXPECT_EQ(edctl({"mic-control", "conflict-delete", "gr=3"}).exit_code, 0);
    EXPECT_EQ(edctl({"--json", "mic-control", "conflicts"}).out, "[{\"gr\":\"4\",\"c0\":2,\"p0\":2}]\n");
    EXPECT_EQ(applied("microphone_group_conflict_config"),
              section_of(read_file(microphone_path()), "microphone_group_conflict_config"));
}

TEST_F(MicControlSimTest, Modes_ShouldBeStoredAndApplied)
{
    EXPECT_EQ(edctl({"mic-control", "speakers-mode", "set", "multi_mode=2", "cancel_mode=1"}).exit_code, 0);
    EXPECT_EQ(edctl({"--json", "mic-control", "speakers-mode", "get"}).out, "{\"multi_mode\":2,\"cancel_mode\":1}\n");
    EXPECT_EQ(applied("microphone_multiple_speakers_mode"), "{\"multi_mode\":2,\"cancel_mode\":1}");
    EXPECT_EQ(edctl({"mic-control", "conflict-mode", "set", "c0=5", "p0=6", "l=1"}).exit_code, 0);
    EXPECT_EQ(edctl({"mic-control", "conflict-mode", "get"}).out, "c0=5 p0=6 l=1\n");
    EXPECT_EQ(applied("microphone_general_conflict_config"),
              section_of(read_file(microphone_path()), "microphone_general_conflict_config"));
    EXPECT_EQ(edctl({"mic-control", "default-mode", "set", "1", "c0=2", "p0=2"}).exit_code, 0);
    auto got = edctl({"--json", "mic-control", "default-mode", "get"});
    EXPECT_EQ(got.out.rfind("{\"cancel_mode\":1,", 0), 0u) << got.out;
    EXPECT_EQ(applied("microphone_default_config"), section_of(read_file(microphone_path()), "microphone_default_config"));
}

TEST_F(MicControlSimTest, BadItems_ShouldBeUsageErrors)
{
    EXPECT_EQ(edctl({"mic-control", "set", "gr=1", "colour=blue"}).exit_code, 2);
    EXPECT_EQ(edctl({"mic-control", "set", "gr=1", "c0=three"}).exit_code, 2);
    EXPECT_EQ(edctl({"mic-control", "set", "{not json"}).exit_code, 2);
    EXPECT_EQ(edctl({"mic-control", "list", "group=1"}).exit_code, 2);
    EXPECT_EQ(edctl({"mic-control", "speakers-mode", "set", "loud=1"}).exit_code, 2);
}

TEST_F(MicControlSimTest, MissingFile_ShouldStoreNothingAndSendNothing)
{
    fs::remove(microphone_path());
    EXPECT_EQ(edctl({"mic-control", "set", "gr=1", "id=7"}).exit_code, 1);
    EXPECT_EQ(control("calls"), "{\"code\":0,\"total\":0,\"next\":0,\"calls\":[]}");
}
