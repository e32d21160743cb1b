// SPDX-License-Identifier: MIT
// The console's defences: login, sessions and CSRF tokens over TLS, slowed logins, the body limit,
// the page's folder, the Host and Origin checks, and the refusal to listen off loopback without
// TLS and a login.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include "console_fixture.h"

namespace {

constexpr const char *kPassword = "correct horse";

// Sends `request` as it is over plain TCP to 127.0.0.1:`port` and returns the whole answer.
std::string raw_http(int port, const std::string &request)
{
    int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<uint16_t>(port));
    std::string answer;
    if (connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0 &&
        write(fd, request.data(), request.size()) == static_cast<ssize_t>(request.size())) {
        char buffer[4096];
        for (ssize_t got; (got = read(fd, buffer, sizeof buffer)) > 0;)
            answer.append(buffer, static_cast<size_t>(got));
    }
    close(fd);
    return answer;
}

std::string status_line(const std::string &answer) { return answer.substr(0, answer.find("\r\n")); }

} // namespace

// The console with TLS and a login, on loopback, with a page folder of its own.
class ConsoleSecureTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        // A TLS write to a connection the console closed (after refusing a request) must fail, not kill.
        std::signal(SIGPIPE, SIG_IGN);
        broker_ = std::make_unique<vask_test::broker>();
        room_ = std::make_unique<vask_test::sim_room>(broker_->url(), "");
        ASSERT_TRUE(room_->start_sim());
        const std::string &dir = files_.path();
        vask_test::run_result cert =
            vask_test::run_program({VASK_OPENSSL, "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout",
                                    dir + "/key.pem", "-out", dir + "/cert.pem", "-days", "1", "-subj",
                                    "/CN=127.0.0.1", "-addext", "subjectAltName=IP:127.0.0.1"});
        ASSERT_EQ(cert.exit_code, 0) << vask_test::describe(cert);
        vask_test::run_result passwd = vask_test::run_program(
            {"/bin/sh", "-c", "echo '" + std::string(kPassword) + "' | \"$0\" passwd \"$1\"", VASK_CONSOLE,
             dir + "/passwd"});
        ASSERT_EQ(passwd.exit_code, 0) << vask_test::describe(passwd);
        std::filesystem::create_directories(dir + "/www");
        std::ofstream(dir + "/www/index.html") << "<!doctype html><title>room</title>\n";
        std::filesystem::create_symlink(room_->root() + "/etc/external_device.json", dir + "/www/leak.json");
        ASSERT_TRUE(console_.start({"--listen", "127.0.0.1:0", "--www", dir + "/www", "--tls-cert", dir + "/cert.pem",
                                    "--tls-key", dir + "/key.pem", "--passwd-file", dir + "/passwd"},
                                   room_->env(), room_->root() + "/console.log"));
        client_ = std::make_unique<httplib::SSLClient>("127.0.0.1", console_.port());
        client_->set_ca_cert_path((dir + "/cert.pem").c_str());
        client_->enable_server_certificate_verification(true);
        client_->set_read_timeout(30, 0);
    }

    void TearDown() override
    {
        client_.reset();
        console_.stop_cleanly();
        room_->stop_sim_cleanly();
    }

    vask_test::http_answer call(const std::string &method, const std::string &path, const std::string &body = "",
                                const httplib::Headers &headers = {})
    {
        return vask_test::http_call(*client_, method, path, body, headers);
    }

    // Logs in; the headers a request of that session sends (cookie and CSRF token).
    httplib::Headers log_in()
    {
        vask_test::http_answer answer = call("POST", "/api/login", std::string("{\"password\":\"") + kPassword + "\"}");
        EXPECT_EQ(answer.status, 200) << answer.body;
        std::string cookie = answer.header("Set-Cookie");
        return {{"Cookie", cookie.substr(0, cookie.find(';'))}, {"X-CSRF-Token", answer.text("csrf_token")}};
    }

    vask_test::temp_dir files_;
    std::unique_ptr<vask_test::broker> broker_;
    std::unique_ptr<vask_test::sim_room> room_;
    vask_test::console_process console_;
    std::unique_ptr<httplib::SSLClient> client_;
};

TEST_F(ConsoleSecureTest, NoSession_ShouldAnswer401OnEveryEndpointButLogin)
{
    // An event stream let through would never end: a short read timeout turns it into a failure.
    client_->set_read_timeout(5, 0);
    for (const auto &endpoint : vask_test::kConsoleEndpoints) {
        vask_test::http_answer answer = call(endpoint.first, endpoint.second, "{}");
        EXPECT_EQ(answer.status, 401) << endpoint.first << " " << endpoint.second;
        EXPECT_EQ(answer.body, "{\"code\":-401,\"error\":\"log in first: POST /api/login\"}\n") << endpoint.second;
    }
    EXPECT_EQ(call("POST", "/api/login", std::string("{\"password\":\"") + kPassword + "\"}").status, 200);
    EXPECT_EQ(call("GET", "/").status, 200) << "the page itself loads without a session, to show the login";
}

TEST_F(ConsoleSecureTest, Login_ShouldGiveAHardenedExpiringCookie)
{
    vask_test::http_answer answer = call("POST", "/api/login", std::string("{\"password\":\"") + kPassword + "\"}");
    std::string cookie = answer.header("Set-Cookie");
    EXPECT_EQ(cookie.substr(0, 13), "vask_session=");
    EXPECT_EQ(cookie.substr(cookie.find(';')), "; Path=/; Max-Age=43200; HttpOnly; Secure; SameSite=Strict");
    EXPECT_EQ(cookie.find(';') - 13, 64u) << "a token of 32 random bytes";
    EXPECT_EQ(answer.text("csrf_token").size(), 64u);
    httplib::Headers session = {{"Cookie", cookie.substr(0, cookie.find(';'))}};
    EXPECT_EQ(call("GET", "/api/voting", "", session).status, 200);
    EXPECT_EQ(call("GET", "/api/session", "", session).text("csrf_token"), answer.text("csrf_token"));
}

TEST_F(ConsoleSecureTest, Logout_ShouldEndTheSession)
{
    httplib::Headers session = log_in();
    EXPECT_EQ(call("POST", "/api/logout", "", session).status, 200);
    EXPECT_EQ(call("GET", "/api/voting", "", session).status, 401);
}

TEST_F(ConsoleSecureTest, MissingOrWrongCsrfToken_ShouldAnswer403)
{
    httplib::Headers session = log_in();
    httplib::Headers cookie_only = {*session.find("Cookie")};
    httplib::Headers wrong = {*session.find("Cookie"), {"X-CSRF-Token", std::string(64, '0')}};
    const std::string body = R"({"hid":true})";
    for (const httplib::Headers &headers : {cookie_only, wrong}) {
        vask_test::http_answer answer = call("PUT", "/api/imshare", body, headers);
        EXPECT_EQ(answer.status, 403);
        EXPECT_EQ(answer.body, "{\"code\":-403,\"error\":\"missing or wrong X-CSRF-Token\"}\n");
    }
    EXPECT_EQ(call("GET", "/api/imshare", "", cookie_only).body, "{\"hid\":false}\n") << "nothing was changed";
    EXPECT_EQ(call("PUT", "/api/imshare", body, session).status, 200);
    EXPECT_EQ(call("GET", "/api/imshare", "", cookie_only).body, "{\"hid\":true}\n");
}

TEST_F(ConsoleSecureTest, CrossOriginChange_ShouldAnswer403)
{
    httplib::Headers session = log_in();
    session.emplace("Origin", "https://evil.example");
    vask_test::http_answer answer = call("PUT", "/api/imshare", R"({"hid":true})", session);
    EXPECT_EQ(answer.status, 403);
    EXPECT_EQ(answer.body, "{\"code\":-403,\"error\":\"cross-origin request refused\"}\n");
}

TEST_F(ConsoleSecureTest, WrongPassword_ShouldBeSlowedAndThenLockedOut)
{
    for (int failure = 1; failure <= 5; ++failure) {
        auto start = std::chrono::steady_clock::now();
        vask_test::http_answer answer = call("POST", "/api/login", R"({"password":"guess"})");
        auto waited = std::chrono::steady_clock::now() - start;
        EXPECT_EQ(answer.body, "{\"code\":-401,\"error\":\"wrong password\"}\n");
        // A lower bound only: the pause is the console's, a loaded machine only adds to it.
        EXPECT_GE(waited, std::chrono::milliseconds(250 * failure)) << "failure " << failure;
    }
    vask_test::http_answer locked = call("POST", "/api/login", std::string("{\"password\":\"") + kPassword + "\"}");
    EXPECT_EQ(locked.status, 429);
    EXPECT_EQ(locked.body.substr(0, 59), "{\"code\":-429,\"error\":\"too many failed logins: try again in ");
    EXPECT_NE(locked.header("Retry-After"), "");
}

TEST_F(ConsoleSecureTest, StaticFiles_ShouldNotBeReadOutsideTheirFolder)
{
    EXPECT_EQ(call("GET", "/").body, "<!doctype html><title>room</title>\n");
    EXPECT_EQ(call("GET", "/leak.json").status, 404) << "a link out of the folder is not followed";
    EXPECT_EQ(call("GET", "/%2e%2e/%2e%2e/%2e%2e/%2e%2e/etc/passwd").status, 404);
    EXPECT_EQ(call("GET", "/..%2f..%2f..%2fetc%2fpasswd").status, 404);
}

TEST(ConsoleOptions, NonLoopbackWithoutTlsAndLogin_ShouldRefuseToStart)
{
    vask_test::run_result plain = vask_test::run_program({VASK_CONSOLE, "--listen", "0.0.0.0:0", "--www", VASK_CONSOLE_WWW});
    EXPECT_EQ(plain.exit_code, 2);
    EXPECT_EQ(plain.err, "vask-console: listening on 0.0.0.0 (not loopback) needs TLS (--tls-cert, --tls-key) and a "
                         "login (--passwd-file)\n");
    vask_test::run_result no_login = vask_test::run_program(
        {VASK_CONSOLE, "--listen", "192.0.2.1:8443", "--www", VASK_CONSOLE_WWW, "--tls-cert", "c.pem", "--tls-key", "k.pem"});
    EXPECT_EQ(no_login.exit_code, 2);
    vask_test::run_result login_without_tls = vask_test::run_program(
        {VASK_CONSOLE, "--listen", "127.0.0.1:0", "--www", VASK_CONSOLE_WWW, "--passwd-file", "p"});
    EXPECT_EQ(login_without_tls.err, "vask-console: a login (--passwd-file) needs TLS (--tls-cert, --tls-key): its "
                                     "cookie is sent over HTTPS only\n");
}

TEST(ConsolePasswd, Passwd_ShouldWriteAYescryptHashReadableByItsOwnerOnly)
{
    vask_test::temp_dir dir;
    vask_test::run_result r = vask_test::run_program(
        {"/bin/sh", "-c", "echo 'a long secret' | \"$0\" passwd \"$1\"", VASK_CONSOLE, dir.path() + "/passwd"});
    ASSERT_EQ(r.exit_code, 0) << vask_test::describe(r);
    std::string hash = vask_test::read_text_file(dir.path() + "/passwd");
    EXPECT_EQ(hash.substr(0, 3), "$y$");
    EXPECT_EQ(hash.find("a long secret"), std::string::npos);
    struct stat info {};
    ASSERT_EQ(stat((dir.path() + "/passwd").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u);
    vask_test::run_result shorter = vask_test::run_program(
        {"/bin/sh", "-c", "echo short | \"$0\" passwd \"$1\"", VASK_CONSOLE, dir.path() + "/other"});
    EXPECT_EQ(shorter.exit_code, 2);
}

TEST_F(ConsoleTest, PathTraversal_ShouldAnswer404)
{
    for (const char *path : {"/../../../../etc/passwd", "/%2e%2e/%2e%2e/%2e%2e/etc/passwd", "/..%2f..%2fetc%2fpasswd",
                             "/www/../../../etc/passwd", "/%00index.html"}) {
        std::string answer = raw_http(console_.port(), std::string("GET ") + path +
                                                            " HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\n\r\n");
        EXPECT_EQ(status_line(answer), "HTTP/1.1 404 Not Found") << path;
        EXPECT_EQ(answer.find("root:"), std::string::npos) << path;
    }
}

TEST_F(ConsoleTest, OversizedBody_ShouldAnswer413)
{
    vask_test::http_answer answer = call("PUT", "/api/imshare", "{\"hid\":true,\"pad\":\"" + std::string(70000, 'x') + "\"}");
    EXPECT_EQ(answer.status, 413);
    EXPECT_EQ(answer.body, "{\"code\":-413,\"error\":\"the request body is larger than the console accepts\"}\n");
    EXPECT_EQ(call("GET", "/api/imshare").body, "{\"hid\":false}\n");
}

TEST_F(ConsoleTest, ForeignHostName_ShouldAnswer403)
{
    std::string answer = raw_http(console_.port(), "GET /api/voting HTTP/1.1\r\nHost: rebound.example:8080\r\n"
                                                   "Connection: close\r\n\r\n");
    EXPECT_EQ(status_line(answer), "HTTP/1.1 403 Forbidden");
    EXPECT_NE(answer.find("{\"code\":-403,\"error\":\"this console answers on loopback names only, not "
                          "\\\"rebound.example:8080\\\"\"}"),
              std::string::npos);
}
