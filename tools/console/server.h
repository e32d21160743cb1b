// SPDX-License-Identifier: MIT
// The HTTP side of vask-console: the API tables, the event stream, the page, and the gate in front
// of them (sessions, CSRF, origin, media type, body size).
#ifndef VASK_CONSOLE_SERVER_H
#define VASK_CONSOLE_SERVER_H

#include <chrono>
#include <memory>
#include <string>

namespace httplib {
class Server;
struct Request;
struct Response;
} // namespace httplib

namespace console {

class event_hub;
class room_events;
class session_table;
class login_throttle;

struct server_options {
    std::string host = "127.0.0.1";
    int port = 8080;          // 0: any free port (the ready line names it)
    std::string www_dir;      // the page's folder
    std::string openapi_file; // the OpenAPI document served at /api/openapi.json
    std::string tls_cert;     // PEM files; both or neither
    std::string tls_key;
    std::string passwd_file;  // the password hash; empty: no login (loopback only)
    std::chrono::seconds session_idle{1800};
    std::chrono::seconds session_lifetime{12 * 3600};
    size_t body_limit = 64 * 1024;
    size_t workers = 80;      // HTTP worker threads; each event-stream client holds one
    size_t max_event_clients = 64;
};

// True for 127.0.0.0/8, ::1 and "localhost".
bool is_loopback(const std::string &host);

// What is wrong with `options` for listening (TLS and login off loopback, files readable); "" when
// nothing.
std::string check_options(const server_options &options);

class console_server {
public:
    console_server(const server_options &options, event_hub &hub, room_events &events);
    ~console_server();

    // Binds the address; false with `error` set when it cannot (or the TLS files or the password file
    // cannot be loaded).
    bool bind(std::string &error);
    // The URL the console answers on, with the bound port.
    std::string url() const;
    // Serves until stop(); returns false when serving failed.
    bool run();
    // Ends the event streams and the server; run() then returns. Safe from another thread.
    void stop();

private:
    struct state;
    std::unique_ptr<state> state_;
};

} // namespace console

#endif
