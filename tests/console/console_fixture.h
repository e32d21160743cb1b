// SPDX-License-Identifier: MIT
// A room for the console's tests: a private broker, the simulator in a system root of its own, and
// vask-console started on a free loopback port against them, with an HTTP client of the console.
#ifndef VASK_TEST_CONSOLE_FIXTURE_H
#define VASK_TEST_CONSOLE_FIXTURE_H

#include <cjson/cJSON.h>
#include <csignal>
#include <fstream>
#include <gtest/gtest.h>
#include <httplib.h>
#include <memory>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <utility>
#include <vector>

#include "broker.h"
#include "process.h"
#include "sim_room.h"

namespace vask_test {

constexpr const char *kConsoleReadyLine = "vask-console: ready";

// Every endpoint of the console (method, a path that reaches it); the OpenAPI document must list
// exactly these.
constexpr std::pair<const char *, const char *> kConsoleEndpoints[] = {
    {"GET", "/api/voting"}, {"POST", "/api/voting"}, {"GET", "/api/microphones/on"},
    {"GET", "/api/mic-central/state"}, {"POST", "/api/mic-central/test"}, {"GET", "/api/rs232/devices"},
    {"GET", "/api/imshare"}, {"PUT", "/api/imshare"}, {"GET", "/api/mic-central"}, {"PUT", "/api/mic-central"},
    {"GET", "/api/castdeck"}, {"PUT", "/api/castdeck"}, {"GET", "/api/projector"}, {"PUT", "/api/projector"},
    {"POST", "/api/projector/test"}, {"GET", "/api/tcp-control"}, {"PUT", "/api/tcp-control"},
    {"GET", "/api/rs232/control"}, {"PUT", "/api/rs232/control"}, {"GET", "/api/mic-control/items"},
    {"POST", "/api/mic-control/items"}, {"POST", "/api/mic-control/items/execute"},
    {"POST", "/api/mic-control/items/simulate"}, {"POST", "/api/mic-control/home"},
    {"DELETE", "/api/mic-control/items/1/7"}, {"GET", "/api/mic-control/conflicts"},
    {"POST", "/api/mic-control/conflicts"}, {"DELETE", "/api/mic-control/conflicts/1"},
    {"GET", "/api/mic-control/default-mode"}, {"PUT", "/api/mic-control/default-mode"},
    {"GET", "/api/mic-control/conflict-mode"}, {"PUT", "/api/mic-control/conflict-mode"},
    {"GET", "/api/mic-control/speakers-mode"}, {"PUT", "/api/mic-control/speakers-mode"},
    {"GET", "/api/zorvo/firmware"}, {"GET", "/api/zorvo/macros"}, {"PUT", "/api/zorvo/macros/1"},
    {"POST", "/api/zorvo/macros/1/goto"}, {"POST", "/api/config/validate"}, {"GET", "/api/events"},
    {"GET", "/api/status"}, {"GET", "/api/session"}, {"GET", "/api/openapi.json"}, {"POST", "/api/logout"},
};

// vask-console as a child process, stopped with SIGTERM and expected to exit cleanly.
class console_process {
public:
    ~console_process() { stop_cleanly(); }

    // Starts VASK_CONSOLE with `args` (after the page's and OpenAPI paths and a short presence
    // interval) and waits for its ready line; the URL it printed is then url().
    bool start(const std::vector<std::string> &args, const std::vector<std::string> &env,
               const std::string &log_file)
    {
        std::vector<std::string> argv = {VASK_CONSOLE, "--www", VASK_CONSOLE_WWW, "--openapi", VASK_CONSOLE_OPENAPI,
                                         "--presence-interval", "200"};
        argv.insert(argv.end(), args.begin(), args.end());
        if (!process_.start(argv, env, log_file) ||
            !process_.wait_for_line(kConsoleReadyLine, std::chrono::seconds(20)))
            return false;
        const std::string marker = "listening on ";
        size_t at = process_.output().find(marker);
        size_t end = process_.output().find('\n', at);
        if (at == std::string::npos || end == std::string::npos)
            return false;
        url_ = process_.output().substr(at + marker.size(), end - at - marker.size());
        size_t colon = url_.rfind(':');
        port_ = std::stoi(url_.substr(colon + 1));
        return true;
    }

    void stop_cleanly()
    {
        if (!process_.running())
            return;
        int status = process_.stop(SIGTERM, std::chrono::seconds(20));
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "vask-console exit status " << status;
    }

    const std::string &url() const { return url_; }
    int port() const { return port_; }

private:
    child_process process_;
    std::string url_;
    int port_ = 0;
};

// An answer of the console: its status, its body, and the body parsed when it is JSON.
struct http_answer {
    int status = -1;
    std::string body;
    httplib::Headers headers;
    std::shared_ptr<cJSON> json;
    // Member `key` of the JSON body as text ("" when absent).
    std::string text(const char *key) const
    {
        const cJSON *item = cJSON_GetObjectItemCaseSensitive(json.get(), key);
        return cJSON_IsString(item) ? item->valuestring : std::string();
    }
    // Header `name` of the answer ("" when absent).
    std::string header(const char *name) const
    {
        auto found = headers.find(name);
        return found != headers.end() ? found->second : std::string();
    }
    int number(const char *key) const
    {
        const cJSON *item = cJSON_GetObjectItemCaseSensitive(json.get(), key);
        return cJSON_IsNumber(item) ? item->valueint : -9999;
    }
};

inline http_answer to_answer(const httplib::Result &result)
{
    http_answer answer;
    if (!result)
        return answer;
    answer.status = result->status;
    answer.body = result->body;
    answer.headers = result->headers;
    answer.json.reset(cJSON_Parse(result->body.c_str()), cJSON_Delete);
    return answer;
}

// Sends `method` `path` with `body` (JSON) and the extra `headers` through `client` (plain or TLS).
template <typename Client>
http_answer http_call(Client &client, const std::string &method, const std::string &path,
                             const std::string &body = std::string(), const httplib::Headers &headers = {})
{
    if (method == "GET")
        return to_answer(client.Get(path, headers));
    if (method == "DELETE")
        return to_answer(client.Delete(path, headers, body, "application/json"));
    if (method == "PUT")
        return to_answer(client.Put(path, headers, body, "application/json"));
    return to_answer(client.Post(path, headers, body, "application/json"));
}

inline std::string read_text_file(const std::string &path)
{
    std::ifstream file(path);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

// The compact JSON text of `text` re-printed, so that two texts compare by content.
inline std::string compact_json(const std::string &text)
{
    std::unique_ptr<cJSON, void (*)(cJSON *)> doc(cJSON_Parse(text.c_str()), cJSON_Delete);
    if (!doc)
        return "not JSON: " + text;
    char *printed = cJSON_PrintUnformatted(doc.get());
    std::string out = printed ? printed : "";
    cJSON_free(printed);
    return out;
}

} // namespace vask_test

// A broker, the simulator and the console on loopback without login.
class ConsoleTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        broker_ = std::make_unique<vask_test::broker>();
        room_ = std::make_unique<vask_test::sim_room>(broker_->url(), "");
        ASSERT_TRUE(room_->start_sim());
        ASSERT_TRUE(console_.start({"--listen", "127.0.0.1:0"}, room_->env(), room_->root() + "/console.log"));
        client_ = std::make_unique<httplib::Client>("127.0.0.1", console_.port());
        client_->set_read_timeout(30, 0);
    }

    void TearDown() override
    {
        client_.reset();
        console_.stop_cleanly();
        room_->stop_sim_cleanly();
    }

    vask_test::http_answer call(const std::string &method, const std::string &path,
                                const std::string &body = std::string())
    {
        return vask_test::http_call(*client_, method, path, body);
    }

    // What the simulator applied of `section`, compact.
    std::string applied(const std::string &section)
    {
        return vask_test::compact_json(room_->edctl_ok({"sim", "applied", section}));
    }

    std::string etc(const std::string &name) { return vask_test::read_text_file(room_->root() + "/etc/" + name); }

    std::unique_ptr<vask_test::broker> broker_;
    std::unique_ptr<vask_test::sim_room> room_;
    vask_test::console_process console_;
    std::unique_ptr<httplib::Client> client_;
};

#endif
