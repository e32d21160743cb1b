// SPDX-License-Identifier: MIT
// The console's answers when something is wrong: each result of the library mapped to its HTTP
// status, and the console's own refusals.
#include "console_fixture.h"

namespace {

std::string error_body(int code, const std::string &error)
{
    return "{\"code\":" + std::to_string(code) + ",\"error\":\"" + error + "\"}\n";
}

} // namespace

TEST_F(ConsoleTest, BadInput_ShouldAnswer400WithWhatWasWrong)
{
    struct bad_case {
        const char *method;
        const char *path;
        const char *body;
        const char *error;
    };
    const bad_case cases[] = {
        {"POST", "/api/voting", R"({"action":"pause"})", "\\\"action\\\" must be one of enter, start, stop, exit"},
        {"POST", "/api/voting", R"({})", "\\\"action\\\" is missing"},
        {"POST", "/api/voting", R"({"action":"enter","x":1})", "unknown member \\\"x\\\""},
        {"POST", "/api/voting", "[1]", "the body must be one JSON object"},
        {"POST", "/api/voting", "{", "the body must be one JSON object"},
        {"PUT", "/api/imshare", R"({"hid":"yes"})", "\\\"hid\\\" must be true or false"},
        {"PUT", "/api/projector", R"({"protocol":"pjlink","ip_address":"projector.local"})",
         "\\\"ip_address\\\" must be an IPv4 address"},
        {"PUT", "/api/projector", R"({"protocol":"vga"})",
         "\\\"protocol\\\" must be one of none, hitachi_tcp, hitachi_rs232, pjlink"},
        {"PUT", "/api/projector", R"({"protocol":"hitachi_rs232","baud_rate":"12345"})",
         "\\\"baud_rate\\\" must be a serial speed such as \\\"9600\\\""},
        {"PUT", "/api/mic-central", R"({"protocol":"carrier-pigeon"})",
         "\\\"protocol\\\": unknown protocol name \\\"carrier-pigeon\\\""},
        {"PUT", "/api/castdeck", R"({"protocol":2})",
         "the media station's \\\"protocol\\\" must be 0 (none), 1 (tcp) or 21 (rs232)"},
        {"PUT", "/api/tcp-control", R"({"port":"70000"})", "\\\"port\\\" must be a TCP port from 1 to 65535"},
        {"PUT", "/api/rs232/control", R"({"ignored_TTYUSB_A":1.5})", "\\\"ignored_TTYUSB_A\\\" must be a whole number"},
        {"POST", "/api/mic-control/items", R"({"gr":"1","c0":3,"p0":1})", "\\\"id\\\" is missing"},
        {"POST", "/api/mic-control/items", R"({"gr":"1","id":"7","c0":3})", "\\\"c0\\\" and \\\"p0\\\" go together"},
        {"POST", "/api/mic-control/items", R"({"gr":"1","id":"7","l":-1})", "\\\"l\\\" must be a whole number from 0"},
        {"POST", "/api/mic-control/conflicts", R"({"gr":"1","id":"7"})", "unknown member \\\"id\\\""},
        {"PUT", "/api/mic-control/default-mode", R"({"cancel_mode":1})", "\\\"item\\\" is missing"},
        {"PUT", "/api/zorvo/macros/1", R"({"channels":[{"enable":1}]})", "channel 1: \\\"enable\\\" must be true or false"},
    };
    for (const bad_case &c : cases) {
        vask_test::http_answer answer = call(c.method, c.path, c.body);
        EXPECT_EQ(answer.status, 400) << c.method << " " << c.path << " " << c.body;
        EXPECT_EQ(answer.body, error_body(-2, c.error)) << c.method << " " << c.path << " " << c.body;
    }
    EXPECT_EQ(vask_test::compact_json(room_->edctl_ok({"sim", "applied", "projector_control"})), "null")
        << "nothing refused reaches the service";
}

TEST_F(ConsoleTest, ServiceRefusal_ShouldAnswer502)
{
    vask_test::http_answer answer = call("POST", "/api/voting", R"({"action":"stop"})");
    EXPECT_EQ(answer.status, 502);
    EXPECT_EQ(answer.body, error_body(-1, "the operation failed: the service refused it, or the configuration file "
                                          "or the bus failed"));
}

TEST_F(ConsoleTest, MissingConfigurationFile_ShouldAnswer500)
{
    std::filesystem::remove(room_->root() + "/etc/external_device.json");
    vask_test::http_answer answer = call("GET", "/api/projector");
    EXPECT_EQ(answer.status, 500);
    EXPECT_EQ(answer.body, error_body(-1, "the configuration file is missing, unreadable or could not be written"));
}

TEST_F(ConsoleTest, ServiceOffline_ShouldAnswer503)
{
    room_->stop_sim_cleanly();
    vask_test::http_answer answer = call("GET", "/api/voting");
    EXPECT_EQ(answer.status, 503);
    EXPECT_EQ(answer.body, error_body(-3, "the external_device service is offline"));
}

TEST_F(ConsoleTest, SilentService_ShouldAnswer504)
{
    room_->edctl_ok({"sim", "reply", "query_voting", "--none"});
    vask_test::http_answer answer = call("GET", "/api/voting");
    EXPECT_EQ(answer.status, 504);
    EXPECT_EQ(answer.body, error_body(-4, "the external_device service did not answer in time"));
}

TEST_F(ConsoleTest, UnknownPathsAndMethods_ShouldAnswer404And405)
{
    EXPECT_EQ(call("GET", "/api/nothing").body, error_body(-404, "no such resource /api/nothing"));
    vask_test::http_answer wrong = call("DELETE", "/api/voting");
    EXPECT_EQ(wrong.status, 405);
    EXPECT_EQ(wrong.body, error_body(-405, "DELETE is not allowed here; use GET, POST"));
    EXPECT_EQ(call("POST", "/api/zorvo/macros/x/goto").status, 404);
}

TEST_F(ConsoleTest, WrongMediaType_ShouldAnswer415)
{
    httplib::Result result = client_->Post("/api/voting", "action=enter", "application/x-www-form-urlencoded");
    ASSERT_TRUE(result);
    EXPECT_EQ(result->status, 415);
    EXPECT_EQ(result->body, error_body(-415, "send the body as application/json"));
}
