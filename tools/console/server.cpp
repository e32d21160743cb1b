// SPDX-License-Identifier: MIT
#include "server.h"

#include <arpa/inet.h>
#include <climits>
#include <cstdlib>
#include <fstream>
#include <mutex>
#include <regex>
#include <sstream>
#include <thread>
#include <tulo_log.h>
#include <unistd.h>

#include "api.h"
#include "http_parts.h"
#include "security.h"

namespace console {

namespace {

constexpr int kLogModule = 56;
constexpr const char *kSessionCookie = "vask_session";

std::string read_file(const std::string &path)
{
    std::ifstream file(path, std::ios::binary);
    std::ostringstream content;
    content << file.rdbuf();
    return file ? content.str() : std::string();
}

void send(httplib::Response &response, const api_reply &reply)
{
    response.status = reply.status;
    response.set_content(json_text(reply.body.get()) + "\n", kJsonType);
}

bool changes_state(const std::string &method) { return method == "POST" || method == "PUT" || method == "DELETE"; }

std::string cookie_value(const httplib::Request &request, const std::string &name)
{
    std::string cookies = request.get_header_value("Cookie");
    size_t at = 0;
    while (at < cookies.size()) {
        size_t end = cookies.find(';', at);
        if (end == std::string::npos)
            end = cookies.size();
        size_t start = cookies.find_first_not_of(' ', at);
        if (start < end && cookies.compare(start, name.size() + 1, name + "=") == 0)
            return cookies.substr(start + name.size() + 1, end - start - name.size() - 1);
        at = end + 1;
    }
    return std::string();
}

// The host part of a Host header: "[::1]:8080" gives "::1", "localhost:8080" gives "localhost".
std::string host_name(const std::string &host)
{
    if (!host.empty() && host[0] == '[')
        return host.substr(1, host.find(']') - 1);
    return host.substr(0, host.find(':'));
}

} // namespace

bool is_loopback(const std::string &host)
{
    if (host == "localhost" || host == "::1")
        return true;
    in_addr address{};
    return inet_pton(AF_INET, host.c_str(), &address) == 1 && (ntohl(address.s_addr) >> 24) == 127;
}

std::string check_options(const server_options &options)
{
    if (options.tls_cert.empty() != options.tls_key.empty())
        return "--tls-cert and --tls-key go together";
    if (!is_loopback(options.host) && (options.tls_cert.empty() || options.passwd_file.empty()))
        return "listening on " + options.host +
               " (not loopback) needs TLS (--tls-cert, --tls-key) and a login (--passwd-file)";
    if (!options.passwd_file.empty() && options.tls_cert.empty())
        return "a login (--passwd-file) needs TLS (--tls-cert, --tls-key): its cookie is sent over HTTPS only";
    if (options.port < 0 || options.port > 65535)
        return "the port must be from 0 to 65535";
    if (access(options.www_dir.c_str(), R_OK | X_OK) != 0)
        return "the page's folder " + options.www_dir + " cannot be read";
    return std::string();
}

struct console_server::state {
    state(const server_options &o, event_hub &h, room_events &e)
        : options(o), hub(h), events(e), sessions(o.session_idle, o.session_lifetime, 64)
    {
    }

    void gate(const httplib::Request &request, httplib::Response &response, bool &handled);
    void add_routes();
    void add_api_route(const api_route &route);
    void unmatched(const httplib::Request &request, httplib::Response &response);
    void login(const httplib::Request &request, httplib::Response &response);
    void logout(const httplib::Request &request, httplib::Response &response);
    void session(const httplib::Request &request, httplib::Response &response);
    void status(httplib::Response &response);

    bool login_enabled() const { return !password_hash.empty(); }
    std::string scheme() const { return options.tls_cert.empty() ? "http" : "https"; }

    server_options options;
    event_hub &hub;
    room_events &events;
    std::unique_ptr<httplib::Server> server;
    std::string www_root;
    std::string password_hash;
    session_table sessions;
    login_throttle throttle;
    std::mutex verifying; // one yescrypt hash at a time: each takes tens of MiB
    std::vector<api_route> routes;
    std::vector<std::regex> patterns; // routes[i].pattern, compiled once: unmatched() tries them all
    int bound_port = 0;
};

console_server::console_server(const server_options &options, event_hub &hub, room_events &events)
    : state_(std::make_unique<state>(options, hub, events))
{
}

console_server::~console_server() = default;

// Every request passes here before routing (and before its body is read): the Host check against
// DNS rebinding on a console without login, the session, then for changes the origin, the media
// type and the CSRF token.
void console_server::state::gate(const httplib::Request &request, httplib::Response &response, bool &handled)
{
    handled = true;
    // A refused request's body is never read: the connection cannot carry another request.
    response.set_header("Connection", "close");
    std::string host = request.get_header_value("Host");
    if (!login_enabled() && !is_loopback(host_name(host)))
        return send(response, refusal(403, "this console answers on loopback names only, not \"" + host + "\""));
    bool api = request.path.compare(0, 5, "/api/") == 0;
    std::string csrf;
    if (api && login_enabled() && request.path != "/api/login" &&
        !sessions.find(cookie_value(request, kSessionCookie), csrf))
        return send(response, refusal(401, "log in first: POST /api/login"));
    if (changes_state(request.method)) {
        std::string origin = request.get_header_value("Origin");
        if (!origin.empty() && origin != scheme() + "://" + host)
            return send(response, refusal(403, "cross-origin request refused"));
        std::string type = request.get_header_value("Content-Type");
        std::string length = request.get_header_value("Content-Length");
        bool has_body = (!length.empty() && length != "0") || request.has_header("Transfer-Encoding");
        if ((has_body || !type.empty()) && type.compare(0, 16, "application/json") != 0)
            return send(response, refusal(415, "send the body as application/json"));
        if (api && login_enabled() && request.path != "/api/login" &&
            request.get_header_value("X-CSRF-Token") != csrf)
            return send(response, refusal(403, "missing or wrong X-CSRF-Token"));
    }
    response.headers.erase("Connection");
    handled = false;
}

void console_server::state::add_api_route(const api_route &route)
{
    api_handler handler = route.handler;
    auto adapter = [handler](const httplib::Request &request, httplib::Response &response) {
        api_request call;
        json_ptr body;
        if (!request.body.empty()) {
            body.reset(cJSON_ParseWithLength(request.body.data(), request.body.size()));
            if (!cJSON_IsObject(body.get()))
                return send(response, bad_input("the body must be one JSON object"));
            call.body = body.get();
        }
        for (size_t i = 1; i < request.matches.size(); ++i)
            call.params.push_back(request.matches[i].str());
        call.query.insert(request.params.begin(), request.params.end());
        send(response, handler(call));
    };
    std::string method = route.method;
    if (method == "GET")
        server->Get(route.pattern, adapter);
    else if (method == "POST")
        server->Post(route.pattern, adapter);
    else if (method == "PUT")
        server->Put(route.pattern, adapter);
    else
        server->Delete(route.pattern, adapter);
}

// Paths no route took: the page's files for GET outside /api/, otherwise 404, or 405 when the path
// exists for another method.
void console_server::state::unmatched(const httplib::Request &request, httplib::Response &response)
{
    bool api = request.path.compare(0, 5, "/api/") == 0;
    if (!api && (request.method == "GET" || request.method == "HEAD"))
        return serve_file(www_root, request, response);
    std::string allowed;
    for (size_t i = 0; i < routes.size(); ++i) {
        if (std::regex_match(request.path, patterns[i]))
            allowed += (allowed.empty() ? "" : ", ") + std::string(routes[i].method);
    }
    if (allowed.empty())
        return send(response, refusal(404, "no such resource " + request.path));
    response.set_header("Allow", allowed);
    send(response, refusal(405, request.method + " is not allowed here; use " + allowed));
}

void console_server::state::login(const httplib::Request &request, httplib::Response &response)
{
    if (!login_enabled())
        return send(response, refusal(404, "this console runs without login"));
    const std::string &address = request.remote_addr;
    if (long wait = throttle.locked_for(address)) {
        response.set_header("Retry-After", std::to_string(wait));
        return send(response, refusal(429, "too many failed logins: try again in " + std::to_string(wait) + " s"));
    }
    json_ptr body(cJSON_ParseWithLength(request.body.data(), request.body.size()));
    std::string password;
    problem bad = cJSON_IsObject(body.get()) ? read_string(body.get(), "password", password, true)
                                             : "the body must be one JSON object";
    if (!bad.empty())
        return send(response, bad_input(bad));
    bool good = false;
    {
        std::lock_guard<std::mutex> lock(verifying);
        good = verify_password(password, password_hash);
    }
    if (!good) {
        std::this_thread::sleep_for(throttle.failed(address));
        TULO_LOG_write_newline(kLogModule, 1, "vask-console", __LINE__, __func__, "failed login from %s",
                               address.c_str());
        return send(response, refusal(401, "wrong password"));
    }
    throttle.succeeded(address);
    session_table::created made = sessions.create();
    if (made.token.empty())
        return send(response, refusal(500, "no random bytes for a session"));
    response.set_header("Set-Cookie", std::string(kSessionCookie) + "=" + made.token + "; Path=/; Max-Age=" +
                                          std::to_string(sessions.lifetime().count()) +
                                          "; HttpOnly; Secure; SameSite=Strict");
    json_ptr out = json_object();
    cJSON_AddNumberToObject(out.get(), "code", 0);
    cJSON_AddStringToObject(out.get(), "csrf_token", made.csrf.c_str());
    send(response, ok(std::move(out)));
}

void console_server::state::logout(const httplib::Request &request, httplib::Response &response)
{
    sessions.remove(cookie_value(request, kSessionCookie));
    response.set_header("Set-Cookie",
                        std::string(kSessionCookie) + "=; Path=/; Max-Age=0; HttpOnly; Secure; SameSite=Strict");
    send(response, ok());
}

void console_server::state::session(const httplib::Request &request, httplib::Response &response)
{
    std::string csrf;
    sessions.find(cookie_value(request, kSessionCookie), csrf);
    json_ptr out = json_object();
    cJSON_AddBoolToObject(out.get(), "login", login_enabled());
    cJSON_AddStringToObject(out.get(), "csrf_token", csrf.c_str());
    send(response, ok(std::move(out)));
}

void console_server::state::status(httplib::Response &response)
{
    event_hub::counters counters = hub.stats();
    json_ptr out = json_object();
    cJSON_AddStringToObject(out.get(), "service", events.presence().c_str());
    cJSON_AddBoolToObject(out.get(), "login", login_enabled());
    cJSON *events_json = cJSON_AddObjectToObject(out.get(), "events");
    cJSON_AddNumberToObject(events_json, "clients", static_cast<double>(counters.clients));
    cJSON_AddNumberToObject(events_json, "published", static_cast<double>(counters.published));
    cJSON_AddNumberToObject(events_json, "dropped", static_cast<double>(counters.dropped));
    send(response, ok(std::move(out)));
}

void console_server::state::add_routes()
{
    for (auto family : {service_routes, settings_routes, mic_control_routes, zorvo_routes}) {
        for (api_route &route : family())
            routes.push_back(std::move(route));
    }
    routes.push_back({"POST", "/api/login", nullptr});
    routes.push_back({"POST", "/api/logout", nullptr});
    routes.push_back({"GET", "/api/session", nullptr});
    routes.push_back({"GET", "/api/status", nullptr});
    routes.push_back({"GET", "/api/events", nullptr});
    routes.push_back({"GET", "/api/openapi.json", nullptr});
    for (const api_route &route : routes) {
        patterns.emplace_back(route.pattern);
        if (route.handler)
            add_api_route(route);
    }
    using httplib::Request;
    using httplib::Response;
    server->Post("/api/login", [this](const Request &q, Response &r) { login(q, r); });
    server->Post("/api/logout", [this](const Request &q, Response &r) { logout(q, r); });
    server->Get("/api/session", [this](const Request &q, Response &r) { session(q, r); });
    server->Get("/api/status", [this](const Request &, Response &r) { status(r); });
    server->Get("/api/events", [this](const Request &q, Response &r) { stream_events(hub, events, q, r); });
    server->Get("/api/openapi.json", [this](const Request &, Response &r) {
        std::string document = read_file(options.openapi_file);
        if (document.empty())
            return send(r, refusal(404, "no OpenAPI document at " + options.openapi_file));
        r.set_content(document, "application/json");
    });
    for (const char *method : {"GET", "POST", "PUT", "DELETE"}) {
        auto fallback = [this](const Request &q, Response &r) { unmatched(q, r); };
        std::string m = method;
        if (m == "GET")
            server->Get(".*", fallback);
        else if (m == "POST")
            server->Post(".*", fallback);
        else if (m == "PUT")
            server->Put(".*", fallback);
        else
            server->Delete(".*", fallback);
    }
}

bool console_server::bind(std::string &error)
{
    state &s = *state_;
    error = check_options(s.options);
    if (!error.empty())
        return false;
    char resolved[PATH_MAX];
    if (!realpath(s.options.www_dir.c_str(), resolved)) {
        error = "the page's folder " + s.options.www_dir + " cannot be resolved";
        return false;
    }
    s.www_root = resolved;
    if (!s.options.passwd_file.empty()) {
        std::string text = read_file(s.options.passwd_file);
        s.password_hash = text.substr(0, text.find('\n'));
        if (s.password_hash.compare(0, 3, "$y$") != 0) {
            error = "no yescrypt hash in " + s.options.passwd_file + " (write one with: vask-console passwd FILE)";
            return false;
        }
    }
    if (s.options.tls_cert.empty()) {
        s.server = std::make_unique<httplib::Server>();
    } else {
        auto tls = std::make_unique<httplib::SSLServer>(s.options.tls_cert.c_str(), s.options.tls_key.c_str());
        if (!tls->is_valid()) {
            error = "the TLS certificate " + s.options.tls_cert + " or key " + s.options.tls_key + " cannot be loaded";
            return false;
        }
        s.server = std::move(tls);
    }
    size_t workers = s.options.workers;
    s.server->new_task_queue = [workers] { return new httplib::ThreadPool(workers); };
    s.server->set_payload_max_length(s.options.body_limit);
    s.server->set_tcp_nodelay(true);
    s.server->set_keep_alive_max_count(1000);
    s.server->set_read_timeout(5, 0);
    s.server->set_write_timeout(5, 0);
    httplib::Headers headers = {
        {"Content-Security-Policy", "default-src 'self'; script-src 'self'; style-src 'self'; img-src 'self' data:; "
                                    "connect-src 'self'; frame-ancestors 'none'; base-uri 'none'; form-action 'self'"},
        {"X-Content-Type-Options", "nosniff"},
        {"X-Frame-Options", "DENY"},
        {"Referrer-Policy", "no-referrer"},
        {"Cache-Control", "no-store"},
    };
    if (!s.options.tls_cert.empty())
        headers.emplace("Strict-Transport-Security", "max-age=31536000");
    s.server->set_default_headers(headers);
    s.server->set_pre_routing_handler([&s](const httplib::Request &request, httplib::Response &response) {
        bool handled = false;
        s.gate(request, response, handled);
        return handled ? httplib::Server::HandlerResponse::Handled : httplib::Server::HandlerResponse::Unhandled;
    });
    s.server->set_error_handler([](const httplib::Request &request, httplib::Response &response) {
        if (response.status == 413)
            send(response, refusal(413, "the request body is larger than the console accepts"));
        else if (response.body.empty() && request.path.compare(0, 5, "/api/") == 0)
            send(response, refusal(response.status, "the request could not be served"));
    });
    s.add_routes();
    if (s.options.port == 0) {
        s.bound_port = s.server->bind_to_any_port(s.options.host);
    } else if (s.server->bind_to_port(s.options.host, s.options.port)) {
        s.bound_port = s.options.port;
    }
    if (s.bound_port <= 0) {
        error = "cannot listen on " + s.options.host + ":" + std::to_string(s.options.port);
        return false;
    }
    return true;
}

std::string console_server::url() const
{
    const std::string &host = state_->options.host;
    std::string shown = host.find(':') != std::string::npos ? "[" + host + "]" : host;
    return state_->scheme() + "://" + shown + ":" + std::to_string(state_->bound_port) + "/";
}

bool console_server::run() { return state_->server && state_->server->listen_after_bind(); }

void console_server::stop()
{
    state_->hub.close();
    if (state_->server)
        state_->server->stop();
}

} // namespace console
