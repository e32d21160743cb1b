// SPDX-License-Identifier: MIT
// edctl monitor against the simulator, with requests from two other processes.
#include <cjson/cJSON.h>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "sim_fixture.h"

using vask_test::run_program;

namespace {

// The JSON objects of the monitor's output, one a line.
std::vector<cJSON *> parse_lines(const std::string &output)
{
    std::vector<cJSON *> records;
    std::istringstream lines(output);
    std::string line;
    while (std::getline(lines, line))
        records.push_back(cJSON_Parse(line.c_str()));
    return records;
}

// Reads the child's standard output until it ends: no line of the monitor is a lone zero byte.
void read_to_end(vask_test::child_process &child)
{
    child.wait_for_line(std::string(1, '\0'), std::chrono::seconds(10));
}

std::string text_of(const cJSON *record, const char *key)
{
    const cJSON *item = cJSON_GetObjectItemCaseSensitive(record, key);
    return cJSON_IsString(item) ? item->valuestring : std::string();
}

} // namespace

class EdctlMonitorTest : public SimTest {
protected:
    // The monitor watches the broker: the callers here go through it, as a technician's callers do
    // with VASK_BUS_DIRECT=0; a caller on the box's direct path never crosses the broker.
    vask_test::run_result edctl(std::vector<std::string> args)
    {
        args.insert(args.begin(), VASK_EDCTL);
        std::vector<std::string> env = env_;
        env.push_back("VASK_BUS_DIRECT=0");
        return run_program(args, env);
    }
};

TEST_F(EdctlMonitorTest, RequestsFromTwoProcesses_ShouldBeShownWithTheirRepliesAndSignals)
{
    vask_test::child_process monitor;
    // Presence, two requests, their two replies, one signal.
    ASSERT_TRUE(monitor.start({VASK_EDCTL, "--json", "monitor", "--count", "6"}, env_, root_.path() + "/monitor.err"));
    ASSERT_TRUE(monitor.wait_for_line("{\"type\":\"presence\",\"service\":\"external_device\",\"state\":\"online\"}",
                                      std::chrono::seconds(10)));
    auto first = edctl({"voting", "get"});
    auto second = edctl({"voting", "get"});
    ASSERT_EQ(first.exit_code, 0) << vask_test::describe(first);
    ASSERT_EQ(second.exit_code, 0) << vask_test::describe(second);
    ASSERT_EQ(edctl({"sim", "press", "1", "7"}).exit_code, 0);
    read_to_end(monitor);

    std::vector<cJSON *> records = parse_lines(monitor.output());
    ASSERT_EQ(records.size(), 6u) << monitor.output();
    std::set<std::string> callers;
    int requests = 0, replies = 0, signals = 0;
    for (const cJSON *record : records) {
        ASSERT_NE(record, nullptr) << monitor.output();
        std::string type = text_of(record, "type");
        if (type == "request") {
            ++requests;
            EXPECT_EQ(text_of(record, "method"), "query_voting");
            EXPECT_EQ(text_of(record, "body"), "");
            EXPECT_EQ(text_of(record, "caller").rfind("libvaskexternal_device-", 0), 0u);
            callers.insert(text_of(record, "caller"));
        } else if (type == "reply") {
            ++replies;
            EXPECT_EQ(text_of(record, "method"), "query_voting");
            EXPECT_EQ(cJSON_GetObjectItemCaseSensitive(record, "code")->valueint, 0);
            EXPECT_TRUE(cJSON_IsNumber(cJSON_GetObjectItemCaseSensitive(record, "ms")));
            EXPECT_EQ(text_of(record, "body").rfind("{\"code\":0", 0), 0u) << text_of(record, "body");
            EXPECT_EQ(callers.count(text_of(record, "caller")), 1u) << "a reply before its request";
        } else if (type == "signal") {
            ++signals;
            EXPECT_EQ(text_of(record, "event"), "mic_on_event");
            EXPECT_EQ(text_of(record, "payload"), "{\"Group\":\"1\",\"Id\":\"7\",\"On\":true}");
        }
    }
    EXPECT_EQ(requests, 2);
    EXPECT_EQ(replies, 2);
    EXPECT_EQ(signals, 1);
    EXPECT_EQ(callers.size(), 2u) << "the two processes have their own client ids";
    for (cJSON *record : records)
        cJSON_Delete(record);
}

TEST_F(EdctlMonitorTest, MethodFilter_ShouldShowOnlyThatMethodAndPresence)
{
    vask_test::child_process monitor;
    ASSERT_TRUE(monitor.start({VASK_EDCTL, "monitor", "--count", "3", "--method", "get_imshare_info"}, env_,
                              root_.path() + "/monitor.err"));
    ASSERT_TRUE(monitor.wait_for_line("presence external_device online", std::chrono::seconds(10)));
    ASSERT_EQ(edctl({"voting", "get"}).exit_code, 0);
    ASSERT_EQ(edctl({"sim", "press", "1", "7"}).exit_code, 0);
    ASSERT_EQ(edctl({"imshare", "get"}).exit_code, 0);
    read_to_end(monitor);
    std::istringstream lines(monitor.output());
    std::string presence, request, reply;
    std::getline(lines, presence);
    std::getline(lines, request);
    std::getline(lines, reply);
    EXPECT_EQ(request.rfind("request  get_imshare_info from libvaskexternal_device-", 0), 0u) << monitor.output();
    EXPECT_EQ(reply.rfind("reply    get_imshare_info to libvaskexternal_device-", 0), 0u) << monitor.output();
    EXPECT_NE(reply.find(" code 0 after "), std::string::npos) << reply;
}

TEST_F(EdctlMonitorTest, UnknownOption_ShouldBeAUsageError)
{
    auto result = edctl({"monitor", "--bogus"});
    EXPECT_EQ(result.exit_code, 2);
    EXPECT_EQ(result.err, "edctl: unknown monitor option '--bogus'\ntry 'edctl --help'\n");
}

TEST(EdctlMonitorAlone, WithoutABroker_ShouldSayItIsNotConnected)
{
    auto result = run_program({VASK_EDCTL, "--bus", "mqtt://127.0.0.1:1", "monitor"}, {"TULO_LOG_LEVEL=0"});
    EXPECT_EQ(result.exit_code, 1);
    EXPECT_EQ(result.err, "edctl: monitor failed: not connected to mqtt://127.0.0.1:1\n");
    EXPECT_EQ(result.out, "");
}
