// SPDX-License-Identifier: MIT
// A box's own broker bridged to the fleet's central broker, both started from the shipped
// configuration files with only their markers, port and paths filled in: TLS and passwords on the
// central side, the box's simulator and applications on plain topics, the fleet operator's edctl
// in the room's namespace on the central broker.
#include <gtest/gtest.h>
#include <memory>
#include <sys/wait.h>
#include <unistd.h>

#include "broker.h"
#include "json_text.h"
#include "mqtt_watcher.h"
#include "sim_room.h"

using namespace std::chrono_literals;
using vask_test::run_program;
using vask_test::run_result;

namespace {

const char *const kRoomPassword = "room1-secret";
const char *const kOperatorPassword = "operator-secret";

std::string replace_all(std::string text, const std::string &from, const std::string &to)
{
    for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
        text.replace(at, from.size(), to);
    return text;
}

bool has_line(vask_test::mqtt_watcher &watcher, const std::string &line)
{
    for (const std::string &seen : watcher.lines())
        if (seen == line)
            return true;
    return false;
}

} // namespace

class FleetBridgeTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (!std::filesystem::exists(VASK_OPENSSL))
            GTEST_SKIP() << "openssl is not installed: no certificates for the central broker";
        ASSERT_TRUE(make_credentials());
        central_ = std::make_unique<vask_test::broker>([this](int port) { return central_config(port); });
        box_ = std::make_unique<vask_test::broker>([this](int port) { return box_config(port); });
        box_room_ = std::make_unique<vask_test::sim_room>(box_->url(), "");
        // On the hardened box the service logs in; the box's applications stay anonymous.
        std::vector<std::string> service_login;
        if (hardened_)
            service_login = {"VASK_BUS_USERNAME=external_device", "VASK_BUS_PASSWORD=s3cret"};
        ASSERT_TRUE(box_room_->start_sim(service_login));
        // The operator's workstation is another host in the field: its calls cross the bridge, never
        // the simulator's direct socket, which the bridged presence names.
        operator_ = std::make_unique<vask_test::sim_room>(
            "mqtts://127.0.0.1:" + std::to_string(central_->port()), "site/room1",
            std::vector<std::string>{"VASK_BUS_CAFILE=" + ca_file(), "VASK_BUS_USERNAME=operator",
                                     std::string("VASK_BUS_PASSWORD=") + kOperatorPassword, "VASK_BUS_DIRECT=0"});
        watcher_ = std::make_unique<vask_test::mqtt_watcher>(central_->port(), login("operator", kOperatorPassword));
        ASSERT_TRUE(watcher_->subscribe("site/+/bridge/state"));
        ASSERT_TRUE(watcher_->subscribe("site/+/external_device/state"));
        // The bridge is up and has carried the simulator's presence to the central broker.
        ASSERT_TRUE(vask_test::eventually(
            [this] {
                return has_line(*watcher_, "site/room1/bridge/state 1") &&
                       has_line(*watcher_, "site/room1/external_device/state online");
            },
            30s))
            << testing::PrintToString(watcher_->lines());
        watcher_->clear();
    }

    void TearDown() override
    {
        if (box_room_ != nullptr)
            box_room_->stop_sim_cleanly();
    }

    std::string etc() const { return dir_.path(); }
    std::string ca_file() const { return etc() + "/certs/fleet-ca.crt"; }
    vask_test::mqtt_login login(const std::string &user, const std::string &password) const
    {
        return {user, password, ca_file(), std::string()};
    }

    // A shipped file as a technician installs it: markers replaced, /etc/mosquitto/ moved to the
    // test's folder.
    std::string installed(const std::string &path, int central_port) const
    {
        std::string text = vask_test::read_file(path);
        text = replace_all(text, "@ROOM@", "site/room1");
        text = replace_all(text, "@CENTRAL@", "127.0.0.1:" + std::to_string(central_port));
        text = replace_all(text, "@PASSWORD@", kRoomPassword);
        return replace_all(text, "/etc/mosquitto/", etc() + "/");
    }

    std::string central_config(int port) const
    {
        std::string text = installed(VASK_FLEET_DIR "/central.conf", 0);
        text = replace_all(text, "listener 8883\n", "listener " + std::to_string(port) + " 127.0.0.1\n");
        text += "log_dest stderr\nlog_type error\nlog_type warning\n";
        // As root, mosquitto would switch to its own user, which may not read our temporary folder.
        if (geteuid() == 0)
            text += "user root\n";
        return text;
    }

    // The box's broker: the project's test configuration, or the box's hardened one (loopback,
    // ACL, the service's password), with the bridge file.
    std::string box_config(int port) const
    {
        std::string bridge = installed(VASK_FLEET_DIR "/box-bridge.conf", central_->port());
        if (!hardened_)
            return vask_test::broker_config(port) + bridge;
        std::string text = vask_test::read_file(VASK_BOX_DIR "/mosquitto-vask.conf");
        text = replace_all(text, "listener 1883 ", "listener " + std::to_string(port) + " ");
        text = replace_all(text, "/etc/mosquitto/", etc() + "/");
        if (geteuid() == 0)
            text += "user root\n";
        return text + bridge;
    }

    // A CA, the central broker's certificate for 127.0.0.1 signed by it, the password file and the ACL.
    bool make_credentials()
    {
        std::filesystem::create_directories(etc() + "/certs");
        vask_test::write_file(etc() + "/san.cnf", "subjectAltName=IP:127.0.0.1,DNS:localhost\n");
        std::vector<std::vector<std::string>> steps = {
            {VASK_OPENSSL, "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes",
             "-keyout", etc() + "/ca.key", "-out", ca_file(), "-days", "2", "-subj", "/CN=fleet test CA"},
            {VASK_OPENSSL, "req", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes", "-keyout",
             etc() + "/certs/central.key", "-out", etc() + "/central.csr", "-subj", "/CN=127.0.0.1"},
            {VASK_OPENSSL, "x509", "-req", "-in", etc() + "/central.csr", "-CA", ca_file(), "-CAkey",
             etc() + "/ca.key", "-CAcreateserial", "-out", etc() + "/certs/central.crt", "-days", "2", "-extfile",
             etc() + "/san.cnf"},
            {VASK_MOSQUITTO_PASSWD, "-c", "-b", etc() + "/fleet.passwd", "operator", kOperatorPassword},
            {VASK_MOSQUITTO_PASSWD, "-b", etc() + "/fleet.passwd", "site/room1", kRoomPassword},
            {VASK_MOSQUITTO_PASSWD, "-b", etc() + "/fleet.passwd", "site/room2", "room2-secret"},
        };
        if (hardened_)
            steps.push_back({VASK_MOSQUITTO_PASSWD, "-c", "-b", etc() + "/vask.passwd", "external_device", "s3cret"});
        for (const auto &step : steps) {
            run_result r = run_program(step);
            if (r.exit_code != 0) {
                ADD_FAILURE() << step[0] << " " << step[1] << ": " << r.err;
                return false;
            }
        }
        std::filesystem::copy_file(VASK_FLEET_DIR "/central.acl", etc() + "/fleet.acl");
        // The one line a bridged box adds to its ACL; the file ends in the service's block.
        if (hardened_)
            vask_test::write_file(etc() + "/vask.acl", vask_test::read_file(VASK_BOX_DIR "/vask.acl") +
                                                           "topic write site/room1/bus/reply/#\n");
        return true;
    }

    bool hardened_ = false;
    vask_test::temp_dir dir_;
    std::unique_ptr<vask_test::broker> central_, box_;
    std::unique_ptr<vask_test::sim_room> box_room_, operator_;
    std::unique_ptr<vask_test::mqtt_watcher> watcher_;
};

TEST_F(FleetBridgeTest, BridgedBox_ShouldAnswerTheFleetAndItsOwnApplications)
{
    EXPECT_EQ(operator_->edctl_ok({"imshare", "set", "on"}), "");
    EXPECT_EQ(operator_->edctl_ok({"imshare", "get"}), "image sharing: on\n");
    EXPECT_EQ(operator_->edctl_ok({"--json", "rs232", "devices"}),
              "[{\"number\":0,\"port\":\"ttyS0\",\"description\":\"RS232 port 1\"},"
              "{\"number\":1,\"port\":\"ttyUSB0\",\"description\":\"USB serial adapter\"}]\n");
    // The box's own application, without a namespace on the box's broker, reaches the same service.
    EXPECT_EQ(box_room_->edctl_ok({"imshare", "get"}), "image sharing: on\n");
    EXPECT_EQ(box_room_->edctl_ok({"sim", "calls"}),
              "set_imshare_info {\"hid\":true}\nget_imshare_info \nget_ex_rs232_device_list \nget_imshare_info \n");
}

TEST_F(FleetBridgeTest, SignalsOnTheBox_ShouldArriveCentrallyUnderTheRoom)
{
    ASSERT_TRUE(watcher_->subscribe("site/+/external_device/signal/#"));
    std::string err_file = dir_.path() + "/watch.err";
    vask_test::child_process watch;
    ASSERT_TRUE(watch.start({VASK_EDCTL, "--json", "watch", "--count", "2", "mic_on_event"}, operator_->env(),
                            err_file));
    ASSERT_TRUE(vask_test::eventually([&] { return vask_test::read_file(err_file) == "edctl: watching mic_on_event\n"; },
                                      20s))
        << vask_test::read_file(err_file);

    EXPECT_EQ(box_room_->edctl_ok({"sim", "press", "2", "3"}), "");
    EXPECT_EQ(box_room_->edctl_ok({"sim", "release", "2", "3"}), "");
    ASSERT_TRUE(watcher_->wait_for(2));
    EXPECT_EQ(watcher_->lines(),
              (std::vector<std::string>{
                  "site/room1/external_device/signal/mic_on_event {\"Group\":\"2\",\"Id\":\"3\",\"On\":true}",
                  "site/room1/external_device/signal/mic_on_event {\"Group\":\"2\",\"Id\":\"3\",\"On\":false}"}));
    ASSERT_TRUE(watch.wait_for_line("{\"event\":\"mic_on_event\",\"group\":\"2\",\"id\":\"3\",\"on\":false}", 20s))
        << watch.output();
    EXPECT_EQ(watch.output(), "{\"event\":\"mic_on_event\",\"group\":\"2\",\"id\":\"3\",\"on\":true}\n"
                              "{\"event\":\"mic_on_event\",\"group\":\"2\",\"id\":\"3\",\"on\":false}\n");
    int status = watch.stop(0, 20s);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
}

TEST_F(FleetBridgeTest, KilledSimulatorOnTheBox_ShouldBeOfflineCentrally)
{
    int status = box_room_->stop_sim(SIGKILL);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << status;
    // The simulator's will, published retained on the box, crosses the bridge.
    ASSERT_TRUE(watcher_->wait_for(1));
    EXPECT_EQ(watcher_->lines(), (std::vector<std::string>{"site/room1/external_device/state offline"}));
    for (auto *room : {operator_.get(), box_room_.get()}) {
        run_result r = room->edctl({"voting", "get"});
        EXPECT_EQ(r.exit_code, 1);
        EXPECT_EQ(r.err, "edctl: voting get failed: -3 (the external_device service is not running)\n");
    }
    // A caller that connects later finds the retained state on the central broker.
    vask_test::mqtt_watcher late(central_->port(), login("operator", kOperatorPassword));
    ASSERT_TRUE(late.subscribe("site/room1/external_device/state"));
    ASSERT_TRUE(late.wait_for(1));
    EXPECT_EQ(late.messages()[0].payload, "offline");
    EXPECT_TRUE(late.messages()[0].retain);
}

TEST_F(FleetBridgeTest, LostBox_ShouldShowInTheBridgeStateWhileCallsTimeOut)
{
    box_->kill();
    ASSERT_TRUE(watcher_->wait_for(1));
    EXPECT_EQ(watcher_->lines(), (std::vector<std::string>{"site/room1/bridge/state 0"}));
    // The service's presence stays "online" on the central broker: a call waits for its timeout.
    run_result r = operator_->edctl({"voting", "get"});
    EXPECT_EQ(r.exit_code, 1);
    EXPECT_EQ(r.err, "edctl: voting get failed: -4 (no answer from the external_device service within 8 s)\n");
    // The simulator, left without a broker, is stopped by the fixture as usual.
}

TEST_F(FleetBridgeTest, RoomCredentials_ShouldNotReachAnotherRoom)
{
    vask_test::mqtt_watcher room2(central_->port(), login("site/room2", "room2-secret"));
    // The broker grants any subscription and applies the ACL to each message it would deliver.
    ASSERT_TRUE(room2.subscribe("site/room1/#"));
    ASSERT_TRUE(room2.subscribe("site/room2/#"));
    ASSERT_TRUE(watcher_->subscribe("site/+/external_device/signal/#"));

    vask_test::mqtt_publish_options request;
    request.qos = 1;
    request.response_topic = "site/room2/bus/reply/intruder";
    ASSERT_TRUE(room2.publish("site/room1/external_device/method/set_imshare_info", "{\"hid\":true}", request));
    // Taken and dropped by the central broker before the operator's call: only that one arrives.
    EXPECT_EQ(operator_->edctl_ok({"imshare", "get"}), "image sharing: off\n");
    EXPECT_EQ(box_room_->edctl_ok({"sim", "press", "1", "2"}), "");
    ASSERT_TRUE(watcher_->wait_for(1));
    EXPECT_EQ(box_room_->edctl_ok({"sim", "calls"}), "get_imshare_info \n");

    // Room 1's presence, the operator's reply and the signal were all handled by the broker before
    // this marker; room 2 gets the marker alone.
    vask_test::mqtt_publish_options marker;
    marker.qos = 1;
    ASSERT_TRUE(room2.publish("site/room2/marker", "after", marker));
    ASSERT_TRUE(room2.wait_for(1));
    EXPECT_EQ(room2.lines(), (std::vector<std::string>{"site/room2/marker after"}));
    EXPECT_EQ(watcher_->lines(), (std::vector<std::string>{"site/room1/external_device/signal/mic_on_event "
                                                           "{\"Group\":\"1\",\"Id\":\"2\",\"On\":true}"}));
}

TEST_F(FleetBridgeTest, Bridge_ShouldCarryTheRequestPropertiesAndLeaveTheResponseTopicAsItIs)
{
    vask_test::mqtt_watcher on_box(box_->port());
    ASSERT_TRUE(on_box.subscribe("external_device/method/#"));
    ASSERT_TRUE(on_box.subscribe("site/room1/bus/#"));
    ASSERT_TRUE(watcher_->subscribe("site/room1/bus/reply/probe"));
    vask_test::mqtt_publish_options request;
    request.response_topic = "site/room1/bus/reply/probe";
    request.correlation = std::string("probe\0id", 8);
    request.expiry = 30;
    ASSERT_TRUE(watcher_->publish("site/room1/external_device/method/query_voting", "", request));

    ASSERT_TRUE(on_box.wait_for(2));
    std::vector<vask_test::mqtt_message> seen = on_box.messages();
    EXPECT_EQ(seen[0].topic, "external_device/method/query_voting");
    EXPECT_EQ(seen[0].response_topic, "site/room1/bus/reply/probe");
    EXPECT_EQ(seen[0].correlation, request.correlation);
    // The broker hands on what is left of the expiry.
    EXPECT_GT(seen[0].expiry, 0);
    EXPECT_LE(seen[0].expiry, 30);
    // The simulator answers on the box to the topic as named, and the bridge carries it out.
    EXPECT_EQ(seen[1].topic, "site/room1/bus/reply/probe");

    ASSERT_TRUE(watcher_->wait_for(1));
    vask_test::mqtt_message reply = watcher_->messages()[0];
    EXPECT_EQ(reply.topic, "site/room1/bus/reply/probe");
    EXPECT_EQ(reply.correlation, request.correlation);
    EXPECT_EQ(reply.payload, "{\"code\":0,\"voting_results\":"
                             "{\"Status\":0,\"Agree\":0,\"Disagree\":0,\"Abandon\":0,\"Total\":0,\"Time\":0}}");
}

TEST_F(FleetBridgeTest, RestartedCentralBroker_ShouldGetThePresenceBackFromTheBridge)
{
    watcher_.reset();
    central_->kill();
    ASSERT_TRUE(central_->restart());
    // The central broker kept nothing; the bridge connects again and sends the box's retained
    // presence anew.
    vask_test::mqtt_watcher late(central_->port(), login("operator", kOperatorPassword));
    ASSERT_TRUE(late.subscribe("site/room1/external_device/state"));
    ASSERT_TRUE(vask_test::eventually([&] { return has_line(late, "site/room1/external_device/state online"); },
                                      60s));
    EXPECT_EQ(operator_->edctl_ok({"imshare", "get"}), "image sharing: off\n");
}

TEST_F(FleetBridgeTest, BoxOnTheCentralBroker_ShouldWorkOverTlsWithItsRoomCredentials)
{
    std::string url = "mqtts://127.0.0.1:" + std::to_string(central_->port());
    vask_test::sim_room room2(url, "site/room2",
                              {"VASK_BUS_CAFILE=" + ca_file(), "VASK_BUS_USERNAME=site/room2",
                               "VASK_BUS_PASSWORD=room2-secret"});
    ASSERT_TRUE(room2.start_sim());
    // The box's own application, with the box's credentials, and the operator, both over TLS.
    EXPECT_EQ(room2.edctl_ok({"imshare", "set", "on"}), "");
    vask_test::sim_room operator2(url, "site/room2",
                                  {"VASK_BUS_CAFILE=" + ca_file(), "VASK_BUS_USERNAME=operator",
                                   std::string("VASK_BUS_PASSWORD=") + kOperatorPassword});
    EXPECT_EQ(operator2.edctl_ok({"imshare", "get"}), "image sharing: on\n");
    EXPECT_EQ(room2.edctl_ok({"sim", "calls"}), "set_imshare_info {\"hid\":true}\nget_imshare_info \n");
    // Room 1, behind its bridge, saw none of it.
    EXPECT_EQ(box_room_->edctl_ok({"sim", "calls"}), "");
    // A wrong password is refused by the central broker: edctl is not connected and says so.
    vask_test::sim_room intruder(url, "site/room2",
                                 {"VASK_BUS_CAFILE=" + ca_file(), "VASK_BUS_USERNAME=site/room2",
                                  "VASK_BUS_PASSWORD=wrong"});
    run_result refused = intruder.edctl({"imshare", "get"});
    EXPECT_EQ(refused.exit_code, 1);
    // Before edctl's own line, the bus library logs the broker's reason (with a time stamp).
    const std::string last = "edctl: imshare get failed: not connected to " + url + "\n";
    ASSERT_GE(refused.err.size(), last.size());
    EXPECT_EQ(refused.err.substr(refused.err.size() - last.size()), last);
    EXPECT_NE(refused.err.find(" on_connect: broker refused the connection of edctl-"), std::string::npos);
    EXPECT_NE(refused.err.find(": Not authorized\n"), std::string::npos);
    room2.stop_sim_cleanly();
}

// The box's own hardened broker configuration, with the bridge file and the one ACL line it needs.
class FleetHardenedBoxTest : public FleetBridgeTest {
protected:
    FleetHardenedBoxTest() { hardened_ = true; }
};

TEST_F(FleetHardenedBoxTest, HardenedBox_ShouldAnswerTheFleetAndItsOwnApplications)
{
    EXPECT_EQ(operator_->edctl_ok({"imshare", "set", "on"}), "");
    EXPECT_EQ(operator_->edctl_ok({"imshare", "get"}), "image sharing: on\n");
    EXPECT_EQ(box_room_->edctl_ok({"imshare", "get"}), "image sharing: on\n");
    int status = box_room_->stop_sim(SIGKILL);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << status;
    ASSERT_TRUE(watcher_->wait_for(1));
    EXPECT_EQ(watcher_->lines(), (std::vector<std::string>{"site/room1/external_device/state offline"}));
    run_result r = operator_->edctl({"voting", "get"});
    EXPECT_EQ(r.exit_code, 1);
    EXPECT_EQ(r.err, "edctl: voting get failed: -3 (the external_device service is not running)\n");
}
