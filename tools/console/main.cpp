// SPDX-License-Identifier: MIT
// vask-console: the room console. Serves the JSON API, the event stream and the page over HTTP(S)
// until SIGINT or SIGTERM; "vask-console passwd FILE" writes the login's password hash.
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <getopt.h>
#include <iostream>
#include <libvask_external_device.h>
#include <pthread.h>
#include <string>
#include <sys/stat.h>
#include <termios.h>
#include <thread>
#include <unistd.h>

#include "event_hub.h"
#include "room_events.h"
#include "security.h"
#include "server.h"

namespace {

constexpr const char *kProgram = "vask-console";

struct option_row {
    const char *name;
    int has_arg;
    int id;
    const char *help;
};
enum option_id {
    kListen = 'l', kWww = 'w', kOpenapi = 'o', kCert = 'c', kKey = 'k', kPasswd = 'p', kBus = 'b',
    kRoot = 'r', kSessionIdle = 's', kPresence = 'i', kHelp = 'h', kVersion = 'V',
};
constexpr option_row kOptions[] = {
    {"listen", required_argument, kListen, "HOST:PORT  where to listen (127.0.0.1:8080; port 0: any free port)"},
    {"www", required_argument, kWww, "DIR        the page's folder (" VASK_CONSOLE_WWW_DIR ")"},
    {"openapi", required_argument, kOpenapi, "FILE       the OpenAPI document (DIR/openapi.json)"},
    {"tls-cert", required_argument, kCert, "FILE       TLS certificate chain (PEM)"},
    {"tls-key", required_argument, kKey, "FILE       TLS private key (PEM)"},
    {"passwd-file", required_argument, kPasswd, "FILE       the login's password hash (vask-console passwd FILE)"},
    {"bus", required_argument, kBus, "URL        the broker (sets VASK_BUS_URL)"},
    {"root", required_argument, kRoot, "DIR        system root for the box's files (sets VASK_SYSROOT)"},
    {"session-idle", required_argument, kSessionIdle, "SECONDS    a session ends after this long unused (1800)"},
    {"presence-interval", required_argument, kPresence, "MS         pause between presence probes (1000)"},
    {"help", no_argument, kHelp, "           this help"},
    {"version", no_argument, kVersion, "           the version"},
};

void usage(FILE *out)
{
    std::fprintf(out, "usage: %s [OPTION]...\n       %s passwd FILE\n\n", kProgram, kProgram);
    for (const option_row &row : kOptions)
        std::fprintf(out, "  --%-18s %s\n", row.name, row.help);
}

int usage_error(const std::string &message)
{
    std::fprintf(stderr, "%s: %s\ntry '%s --help'\n", kProgram, message.c_str(), kProgram);
    return 2;
}

bool parse_number(const char *text, long low, long high, long &out)
{
    char *end = nullptr;
    errno = 0;
    out = std::strtol(text, &end, 10);
    return errno == 0 && end != text && *end == '\0' && out >= low && out <= high;
}

bool parse_listen(const std::string &text, console::server_options &options)
{
    size_t colon = text.rfind(':');
    long port = 0;
    if (colon == std::string::npos || !parse_number(text.c_str() + colon + 1, 0, 65535, port))
        return false;
    std::string host = text.substr(0, colon);
    if (host.size() >= 2 && host.front() == '[' && host.back() == ']')
        host = host.substr(1, host.size() - 2);
    options.host = host;
    options.port = static_cast<int>(port);
    return !host.empty();
}

// Reads one line from standard input, without echo when it is a terminal.
std::string read_password(const char *prompt)
{
    bool terminal = isatty(STDIN_FILENO);
    termios saved{};
    if (terminal) {
        std::fprintf(stderr, "%s", prompt);
        tcgetattr(STDIN_FILENO, &saved);
        termios quiet = saved;
        quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        tcsetattr(STDIN_FILENO, TCSAFLUSH, &quiet);
    }
    std::string line;
    std::getline(std::cin, line);
    if (terminal) {
        tcsetattr(STDIN_FILENO, TCSAFLUSH, &saved);
        std::fprintf(stderr, "\n");
    }
    return line;
}

int write_password_file(const std::string &path)
{
    std::string password = read_password("New console password: ");
    if (password.size() < 8)
        return usage_error("the password needs at least 8 characters");
    if (isatty(STDIN_FILENO) && read_password("Again: ") != password)
        return usage_error("the two passwords differ");
    std::string hash = console::hash_password(password);
    if (hash.empty()) {
        std::fprintf(stderr, "%s: libcrypt could not hash the password\n", kProgram);
        return 1;
    }
    std::string temporary = path + ".tmp";
    umask(077);
    FILE *file = std::fopen(temporary.c_str(), "w");
    bool written = file && std::fprintf(file, "%s\n", hash.c_str()) > 0;
    written = file && std::fclose(file) == 0 && written;
    if (!written || std::rename(temporary.c_str(), path.c_str()) != 0) {
        std::fprintf(stderr, "%s: cannot write %s: %s\n", kProgram, path.c_str(), std::strerror(errno));
        std::remove(temporary.c_str());
        return 1;
    }
    return 0;
}

int serve(console::server_options options, std::chrono::milliseconds presence_interval)
{
    // SIGINT and SIGTERM are taken by one waiting thread, so no other thread is interrupted by them.
    sigset_t stop_signals;
    sigemptyset(&stop_signals);
    sigaddset(&stop_signals, SIGINT);
    sigaddset(&stop_signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stop_signals, nullptr);
    std::signal(SIGPIPE, SIG_IGN);

    if (ed_init() != 0) {
        std::fprintf(stderr, "%s: the bus library cannot be started\n", kProgram);
        return 1;
    }
    console::event_hub hub(8192, options.max_event_clients);
    console::room_events events(hub, presence_interval);
    console::console_server server(options, hub, events);
    std::string error;
    int status = 0;
    if (!events.start()) {
        std::fprintf(stderr, "%s: the bus client for the service's presence cannot be made\n", kProgram);
        status = 1;
    } else if (!server.bind(error)) {
        std::fprintf(stderr, "%s: %s\n", kProgram, error.c_str());
        status = error.find("cannot listen") == 0 || error.find("TLS certificate") == 0 ? 1 : 2;
    } else {
        std::thread waiter([&server, &stop_signals] {
            int signal = 0;
            sigwait(&stop_signals, &signal);
            server.stop();
        });
        std::printf("%s: listening on %s\n%s: ready\n", kProgram, server.url().c_str(), kProgram);
        std::fflush(stdout);
        status = server.run() ? 0 : 1;
        // Wakes the waiter when the server ended by itself.
        pthread_kill(waiter.native_handle(), SIGTERM);
        waiter.join();
    }
    events.stop();
    ed_release();
    return status;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc >= 2 && std::strcmp(argv[1], "passwd") == 0) {
        if (argc != 3)
            return usage_error("passwd takes one FILE");
        return write_password_file(argv[2]);
    }
    console::server_options options;
    options.www_dir = VASK_CONSOLE_WWW_DIR;
    long presence_ms = 1000;
    std::vector<option> longs;
    for (const option_row &row : kOptions)
        longs.push_back(option{row.name, row.has_arg, nullptr, row.id});
    longs.push_back(option{nullptr, 0, nullptr, 0});
    long number = 0;
    for (int id; (id = getopt_long(argc, argv, "", longs.data(), nullptr)) != -1;) {
        switch (id) {
        case kListen:
            if (!parse_listen(optarg, options))
                return usage_error("--listen wants HOST:PORT, not '" + std::string(optarg) + "'");
            break;
        case kWww: options.www_dir = optarg; break;
        case kOpenapi: options.openapi_file = optarg; break;
        case kCert: options.tls_cert = optarg; break;
        case kKey: options.tls_key = optarg; break;
        case kPasswd: options.passwd_file = optarg; break;
        case kBus: setenv("VASK_BUS_URL", optarg, 1); break;
        case kRoot: setenv("VASK_SYSROOT", optarg, 1); break;
        case kSessionIdle:
            if (!parse_number(optarg, 10, 7 * 24 * 3600, number))
                return usage_error("--session-idle wants 10 to 604800 seconds");
            options.session_idle = std::chrono::seconds(number);
            break;
        case kPresence:
            if (!parse_number(optarg, 100, 60000, presence_ms))
                return usage_error("--presence-interval wants 100 to 60000 ms");
            break;
        case kHelp: usage(stdout); return 0;
        case kVersion: std::printf("%s %s\n", kProgram, VASK_VERSION); return 0;
        default: return usage_error("unknown option");
        }
    }
    if (optind != argc)
        return usage_error("unexpected argument '" + std::string(argv[optind]) + "'");
    if (options.openapi_file.empty())
        options.openapi_file = options.www_dir + "/openapi.json";
    std::string problem = console::check_options(options);
    if (!problem.empty()) {
        std::fprintf(stderr, "%s: %s\n", kProgram, problem.c_str());
        return 2;
    }
    return serve(options, std::chrono::milliseconds(presence_ms));
}
