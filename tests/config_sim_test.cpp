// SPDX-License-Identifier: MIT
// Settings stored by the library and applied by the simulator, and edctl's configuration commands.
#include "config_sim_fixture.h"

TEST_F(ConfigSimTest, ProjectorSwitchedToPjlink_ShouldBeStoredThenAppliedByTheService)
{
    ASSERT_EQ(ed_set_pjlink_settings("192.0.2.40", "secret"), 0);
    std::string stored = section_of(read_file(config_path()), "projector_control");
    EXPECT_NE(stored.find("\"protocol\":\"pjlink\""), std::string::npos) << stored;
    EXPECT_NE(stored.find("\"pjlink\":{\"ip_address\":\"192.0.2.40\",\"password\":\"secret\"}"), std::string::npos)
        << stored;
    EXPECT_EQ(applied("projector_control"), stored);
    external_protocol_info info{};
    ASSERT_EQ(ed_get_projector_settings(&info), 0);
    EXPECT_EQ(info.protocol, 24);
    EXPECT_EQ(info.ip_address, "192.0.2.40");
}

TEST_F(ConfigSimTest, MicCentralSetToATcpProtocol_ShouldBeStoredThenApplied)
{
    external_protocol_info info{true, 1, "192.0.2.20", "admin", "pw", "", "2202"};
    ASSERT_EQ(ed_set_mic_central_info(info), 0);
    std::string stored = section_of(read_file(config_path()), "miccentral_control");
    EXPECT_NE(stored.find("\"protocol\":\"tcp\""), std::string::npos) << stored;
    EXPECT_EQ(applied("miccentral_control"), stored);
    std::string calls = control("calls");
    EXPECT_NE(calls.find("{\"method\":\"set_mic_central_info\",\"body\":\"\"}"), std::string::npos) << calls;
    // The same settings again: nothing stored, the service not told.
    EXPECT_EQ(control("clear_calls"), "{\"code\":0}");
    ASSERT_EQ(ed_set_mic_central_info(info), 0);
    EXPECT_EQ(control("calls"), "{\"code\":0,\"total\":0,\"next\":0,\"calls\":[]}");
}

TEST_F(ConfigSimTest, EverySetter_ShouldCallItsMethod)
{
    ASSERT_EQ(ed_set_hitachi_tcp_settings("192.0.2.41", "x"), 0);
    ASSERT_EQ(ed_set_hitachi_rs232_settings("9600"), 0);
    ASSERT_EQ(ed_set_none_settings(), 0);
    ASSERT_EQ(ed_set_tcp_control_settings(true, "23"), 0);
    ASSERT_EQ(ed_set_castdeck_info(external_protocol_info{true, 1, "192.0.2.30", "", "", "", "5000"}), 0);
    EXPECT_EQ(ed_pjlink_test("192.0.2.40", "secret"), 0);
    EXPECT_EQ(ed_hitachi_tcp_test("no address", "secret"), -1);
    std::string calls = control("calls");
    for (const char *method : {"projector_control_hitachi_tcp_settings", "projector_control_hitachi_rs232_settings",
                               "projector_control_none_settings", "external_control_tcp_settings",
                               "castdeck_control_settings"})
        EXPECT_NE(calls.find(std::string("{\"method\":\"") + method + "\",\"body\":\"\"}"), std::string::npos)
            << method;
    EXPECT_NE(calls.find("{\"method\":\"projector_control_pjlink_test\",\"body\":"
                         "\"{\\\"ip_address\\\":\\\"192.0.2.40\\\",\\\"password\\\":\\\"secret\\\"}\"}"),
              std::string::npos)
        << calls;
    EXPECT_EQ(applied("external_control"), section_of(read_file(config_path()), "external_control"));
    EXPECT_EQ(applied("castdeck_control"), section_of(read_file(config_path()), "castdeck_control"));
}

TEST_F(ConfigSimTest, FailedStore_ShouldNotBeAnnounced)
{
    fs::remove(config_path());
    EXPECT_EQ(ed_set_pjlink_settings("192.0.2.40", "secret"), -1);
    EXPECT_EQ(ed_set_tcp_control_settings(true, "23"), -1);
    EXPECT_EQ(control("calls"), "{\"code\":0,\"total\":0,\"next\":0,\"calls\":[]}");
}

TEST_F(ConfigSimTest, EdctlProjector_ShouldSwitchAndReadBack)
{
    auto set = edctl({"projector", "pjlink", "192.0.2.40", "secret"});
    EXPECT_EQ(set.exit_code, 0) << set.err;
    auto got = edctl({"--json", "projector", "get"});
    EXPECT_EQ(got.out, "{\"enable\":false,\"protocol\":24,\"protocol_name\":\"\",\"ip_address\":\"192.0.2.40\","
                       "\"username\":\"\",\"password\":\"secret\",\"baud_rate\":\"\",\"port\":\"\"}\n");
    auto applied_text = edctl({"sim", "applied", "projector_control"});
    EXPECT_EQ(applied_text.out, section_of(read_file(config_path()), "projector_control") + "\n");
    EXPECT_EQ(edctl({"projector", "test-pjlink", "192.0.2.40", "secret"}).exit_code, 0);
    EXPECT_EQ(edctl({"projector", "test-hitachi-tcp", "bad", "secret"}).exit_code, 1);
    EXPECT_EQ(edctl({"projector", "warp"}).exit_code, 2);
}

TEST_F(ConfigSimTest, EdctlMicCentral_ShouldStartFromTheStoredSettings)
{
    auto set = edctl({"mic-central", "set", "enable=yes", "protocol=shure-tcp", "ip_address=192.0.2.20", "port=2202"});
    EXPECT_EQ(set.exit_code, 0) << set.err;
    auto got = edctl({"--json", "mic-central", "get"});
    EXPECT_NE(got.out.find("\"enable\":true,\"protocol\":2,\"protocol_name\":\"shure-tcp\",\"ip_address\":"
                           "\"192.0.2.20\""),
              std::string::npos)
        << got.out;
    // Only the named setting changes.
    EXPECT_EQ(edctl({"mic-central", "set", "username=chair"}).exit_code, 0);
    got = edctl({"--json", "mic-central", "get"});
    EXPECT_NE(got.out.find("\"ip_address\":\"192.0.2.20\",\"username\":\"chair\""), std::string::npos) << got.out;
    EXPECT_EQ(edctl({"mic-central", "set", "protocol=warp-drive"}).exit_code, 2);
    EXPECT_EQ(edctl({"mic-central", "set", "colour=blue"}).exit_code, 2);
}

TEST_F(ConfigSimTest, EdctlTcpControl_ShouldSetAndGet)
{
    EXPECT_EQ(edctl({"tcp-control", "set", "on", "2323"}).exit_code, 0);
    auto got = edctl({"--json", "tcp-control", "get"});
    EXPECT_EQ(got.out.rfind("{\"authentication\":true,\"port\":\"2323\",", 0), 0u) << got.out;
    EXPECT_EQ(edctl({"tcp-control", "set", "maybe", "1"}).exit_code, 2);
}

TEST_F(ConfigSimTest, EdctlConfigShow_ShouldPrintASectionOrTheWholeFile)
{
    auto section = edctl({"--json", "config", "show", "castdeck_control"});
    EXPECT_EQ(section.exit_code, 0);
    EXPECT_EQ(section.out, section_of(read_file(config_path()), "castdeck_control") + "\n");
    auto whole = edctl({"config", "show"});
    EXPECT_EQ(whole.out, read_file(config_path()) + (read_file(config_path()).back() == '\n' ? "" : "\n"));
    EXPECT_EQ(edctl({"config", "show", "no_such_section"}).exit_code, 1);
}

TEST_F(ConfigSimTest, EdctlConfigValidate_ShouldRestoreABrokenFileFromTheDefault)
{
    // The box's layout: /etc/external_device.json links to the writable copy in /var/lib.
    fs::create_directories(root_.path() + "/var/lib/vask/etc");
    fs::create_directories(root_.path() + "/usr/share/vask/etc");
    fs::copy_file(VASK_DEFAULT_CONFIG, root_.path() + "/usr/share/vask/etc/external_device.json");
    fs::remove(config_path());
    std::ofstream(root_.path() + "/var/lib/vask/etc/external_device.json") << "{ broken";
    fs::create_symlink(root_.path() + "/var/lib/vask/etc/external_device.json", config_path());
    auto r = edctl({"config", "validate"});
    EXPECT_EQ(r.exit_code, 0) << r.err;
    EXPECT_EQ(r.out, config_path() + ": valid\n");
    EXPECT_EQ(read_file(config_path()), read_file(VASK_DEFAULT_CONFIG));
    EXPECT_TRUE(fs::is_symlink(config_path()));
}

TEST_F(ConfigSimTest, Rs232ControlSet_ShouldBeStoredThenApplied)
{
    auto set = edctl({"rs232", "control", "set", "port=ttyS1", "baud_rate=9600", "ignored_TTYUSB_A=0"});
    EXPECT_EQ(set.exit_code, 0) << set.err;
    auto got = edctl({"--json", "rs232", "control", "get"});
    EXPECT_NE(got.out.find("\"port\":\"ttyS1\",\"baud_rate\":\"9600\""), std::string::npos) << got.out;
    EXPECT_NE(got.out.find("\"ignored_TTYUSB_A\":0,"), std::string::npos) << got.out;
    EXPECT_EQ(applied("external_rs232_config"), section_of(read_file(config_path()), "external_rs232_config"));
    EXPECT_EQ(edctl({"rs232", "control", "set", "speed=fast"}).exit_code, 2);
}

TEST_F(ConfigSimTest, ZorvoGoto_ShouldRunOnlyMacrosTheBoxModelHas)
{
    std::ofstream(root_.path() + "/etc/os-release") << "NAME=\"Box\"\nID=RV710\n";
    EXPECT_EQ(ed_zorvo_goto_macro(3), 0);
    EXPECT_EQ(ed_zorvo_goto_macro(4), -1); // an RV710 has three macros
    EXPECT_EQ(ed_zorvo_goto_macro(0), -1);
    std::ofstream(root_.path() + "/etc/os-release") << "NAME=\"Box\"\nID=RV730\n";
    EXPECT_EQ(ed_zorvo_goto_macro(9), 0);
    std::string calls = control("calls");
    EXPECT_NE(calls.find("{\"method\":\"zorvo_goto_marco\",\"body\":\"{\\\"macro_index\\\":3}\"}"), std::string::npos)
        << calls;
    auto edctl_goto = edctl({"zorvo", "goto", "10"});
    EXPECT_EQ(edctl_goto.exit_code, 1);
}

TEST_F(ConfigSimTest, EdctlZorvo_ShouldShowAndChangeTheMacros)
{
    std::ofstream(root_.path() + "/etc/os-release") << "ID=RV710\n";
    auto before = edctl({"zorvo", "macros"});
    EXPECT_EQ(before.exit_code, 0) << before.err;
    EXPECT_EQ(before.out.substr(0, before.out.find('\n')), "Macro_1 scenes=1 ch1=off/1 ch2=off/1");
    EXPECT_EQ(edctl({"zorvo", "set-macro", "2", "scenes=3", "ch1=on", "preset1=4"}).exit_code, 0);
    auto after = edctl({"--json", "zorvo", "macros"});
    EXPECT_NE(after.out.find("{\"index\":2,\"scenes\":3,\"channels\":[{\"channel\":1,\"enable\":true,\"preset\":\"4\"},"),
              std::string::npos)
        << after.out;
    EXPECT_EQ(edctl({"zorvo", "set-macro", "4", "scenes=1"}).exit_code, 2);
    EXPECT_EQ(edctl({"zorvo", "set-macro", "1", "ch3=on"}).exit_code, 2);
    EXPECT_EQ(edctl({"--json", "zorvo", "fw"}).exit_code, 0);
}

TEST_F(ConfigSimTest, EdctlSerialDiscover_ShouldListLinksDevicesAndConsole)
{
    std::string rules = root_.path() + "/99-box.rules";
    std::ofstream(rules) << "SUBSYSTEM==\"tty\", KERNEL==\"ttyS9\", SYMLINK+=\"box_null\"\n";
    fs::create_directories(root_.path() + "/proc");
    std::ofstream(root_.path() + "/proc/cmdline") << "root=/dev/mmcblk0p1 console=ttyS2,1500000n8\n";
    auto r = edctl({"--json", "serial", "discover", rules});
    EXPECT_EQ(r.exit_code, 0) << r.err;
    EXPECT_EQ(r.out, "{\"links\":[\"/dev/box_null\"],\"devices\":[],\"console\":\"ttyS2\"}\n");
    auto missing = edctl({"serial", "discover", root_.path() + "/none.rules"});
    EXPECT_EQ(missing.exit_code, 1);
    EXPECT_NE(missing.err.find("edctl: serial discover failed: cannot read "), std::string::npos) << missing.err;
}
