// SPDX-License-Identifier: MIT
// vask-console against the library: GET /api/voting over a keep-alive connection against
// ed_get_voting in this process, both on the same simulator and broker in the same run; a burst of
// 1,000 signals to 50 event-stream clients; the bytes of the page's first load; and, for the floor
// under the first, a bare cpp-httplib server answering a constant body on the same kind of connection.
#include <algorithm>
#include <arpa/inet.h>
#include <cstdio>
#include <cstring>
#include <httplib.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

#include "event_reader.h"
#include "sim_process.h"

namespace {

std::unique_ptr<vask_bench::simulated_box> box;
vask_test::child_process console;
int console_port = 0;

bool start_console()
{
    if (!console.start({VASK_CONSOLE, "--listen", "127.0.0.1:0", "--www", VASK_CONSOLE_WWW, "--root", box->root()}, {},
                       box->root() + "/console.log") ||
        !console.wait_for_line("vask-console: ready", std::chrono::seconds(20)))
        return false;
    const std::string &out = console.output();
    size_t colon = out.find("127.0.0.1:");
    console_port = colon == std::string::npos ? 0 : std::atoi(out.c_str() + colon + 10);
    return console_port > 0;
}

// Times each iteration of `call` and reports the median and the 99th percentile in microseconds.
template <typename Call> void timed_calls(benchmark::State &state, Call call)
{
    std::vector<double> micros;
    for (auto _ : state) {
        auto start = std::chrono::steady_clock::now();
        if (!call()) {
            state.SkipWithError("the call failed");
            return;
        }
        micros.push_back(std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start).count());
    }
    std::sort(micros.begin(), micros.end());
    state.counters["p50_us"] = micros[micros.size() / 2];
    state.counters["p99_us"] = micros[micros.size() * 99 / 100];
}

void LibraryGetVoting(benchmark::State &state)
{
    timed_calls(state, [] {
        ed_voting_info vote{};
        return ed_get_voting(vote) == 0;
    });
}
BENCHMARK(LibraryGetVoting)->Iterations(2000);

// A keep-alive HTTP/1.1 client as lean as a browser's on this path: one write per request, reads
// until the body its Content-Length announces is complete, opens a new connection when the server
// closes one (the console ends a connection after 1,000 requests). The benchmark measures the
// server, so the client does no more than the protocol needs: cpp-httplib's client spends tens of
// microseconds of its own per request (more for each header it parses).
class keepalive_client {
public:
    explicit keepalive_client(int port) : port_(port) {}
    ~keepalive_client() { disconnect(); }
    keepalive_client(const keepalive_client &) = delete;
    keepalive_client &operator=(const keepalive_client &) = delete;

    // GET `path`: true for a complete answer with status 200.
    bool get(const std::string &path)
    {
        std::string request = "GET " + path + " HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(port_) + "\r\n\r\n";
        if ((fd_ < 0 && !connect_once()) || !send_all(request))
            return false;
        std::string answer;
        size_t head_end = std::string::npos;
        size_t length = 0;
        for (;;) {
            if (head_end == std::string::npos && (head_end = answer.find("\r\n\r\n")) != std::string::npos) {
                const char *field = strcasestr(answer.c_str(), "\r\nContent-Length:");
                if (field == nullptr || field > answer.c_str() + head_end)
                    return false;
                length = std::strtoul(field + 17, nullptr, 10);
            }
            if (head_end != std::string::npos && answer.size() >= head_end + 4 + length)
                break;
            char buffer[4096];
            ssize_t got = recv(fd_, buffer, sizeof buffer, 0);
            if (got <= 0) {
                disconnect();
                return false;
            }
            answer.append(buffer, static_cast<size_t>(got));
        }
        const char *closing = strcasestr(answer.c_str(), "\r\nConnection: close");
        if (closing != nullptr && closing < answer.c_str() + head_end)
            disconnect();
        return answer.compare(0, 13, "HTTP/1.1 200 ") == 0;
    }

private:
    bool connect_once()
    {
        fd_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<uint16_t>(port_));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        int one = 1;
        timeval bound{5, 0}; // a server that stops answering fails the benchmark instead of holding it
        if (fd_ < 0 || setsockopt(fd_, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one) != 0 ||
            setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &bound, sizeof bound) != 0 ||
            setsockopt(fd_, SOL_SOCKET, SO_SNDTIMEO, &bound, sizeof bound) != 0 ||
            connect(fd_, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0) {
            disconnect();
            return false;
        }
        return true;
    }

    bool send_all(const std::string &data)
    {
        for (size_t sent = 0; sent < data.size();) {
            ssize_t n = send(fd_, data.data() + sent, data.size() - sent, MSG_NOSIGNAL);
            if (n <= 0) {
                disconnect();
                return false;
            }
            sent += static_cast<size_t>(n);
        }
        return true;
    }

    void disconnect()
    {
        if (fd_ >= 0)
            close(fd_);
        fd_ = -1;
    }

    int port_;
    int fd_ = -1;
};

// GET `path` on one keep-alive connection to `port`, each call timed.
void timed_gets(benchmark::State &state, int port, const char *path)
{
    keepalive_client client(port);
    timed_calls(state, [&client, path] { return client.get(path); });
}

void ConsoleGetVoting(benchmark::State &state) { timed_gets(state, console_port, "/api/voting"); }
BENCHMARK(ConsoleGetVoting)->Iterations(2000);

// The console's HTTP side alone: /api/status answers from the console's own counters, no bus call.
void ConsoleGetStatus(benchmark::State &state) { timed_gets(state, console_port, "/api/status"); }
BENCHMARK(ConsoleGetStatus)->Iterations(2000);

// The floor of the HTTP layer: cpp-httplib in a process of its own (this program started again
// with --bare-httplib-server) answering a constant body of the vote's size, its transport set up
// as the console's (no-delay, keep-alive, timeouts, a thread pool), with nothing in front of the
// handler.
constexpr const char *kBareServerOption = "--bare-httplib-server";

int serve_constant()
{
    httplib::Server server;
    server.new_task_queue = [] { return new httplib::ThreadPool(8); };
    server.set_tcp_nodelay(true);
    server.set_keep_alive_max_count(1000);
    server.set_read_timeout(5, 0);
    server.set_write_timeout(5, 0);
    server.Get("/constant", [](const httplib::Request &, httplib::Response &response) {
        response.set_content("{\"status\":0,\"agree\":0,\"disagree\":0,\"abandon\":0,\"total\":0,\"time\":0}\n",
                             "application/json; charset=utf-8");
    });
    int port = server.bind_to_any_port("127.0.0.1");
    if (port <= 0)
        return 1;
    // Listening already: a request sent from now on waits in the backlog until the pool takes it.
    std::printf("port %d\nready\n", port);
    std::fflush(stdout);
    return server.listen_after_bind() ? 0 : 1;
}

void BareHttplibConstant(benchmark::State &state)
{
    vask_test::child_process server;
    if (!server.start({"/proc/self/exe", kBareServerOption}) ||
        !server.wait_for_line("ready", std::chrono::seconds(20))) {
        state.SkipWithError("the bare server did not start");
        return;
    }
    timed_gets(state, std::atoi(server.output().c_str() + 5), "/constant");
    server.stop(SIGTERM);
}
BENCHMARK(BareHttplibConstant)->Iterations(2000);

// 50 clients of /api/events; 1,000 signals emitted at once; the time until every client has all
// of them, and how many never arrived within a minute.
void EventStreamBurst(benchmark::State &state)
{
    constexpr int kClients = 50;
    constexpr int kSignals = 1000;
    double lost = 0;
    for (auto _ : state) {
        std::vector<std::unique_ptr<vask_test::event_reader>> readers;
        for (int i = 0; i < kClients; ++i)
            readers.push_back(std::make_unique<vask_test::event_reader>(console_port));
        auto all = [&](const std::string &needle, size_t count) {
            return std::all_of(readers.begin(), readers.end(), [&](auto &r) { return r->count(needle) >= count; });
        };
        if (!vask_test::eventually([&] { return all("\"presence\"", 1); }, std::chrono::seconds(30))) {
            state.SkipWithError("the event clients did not connect");
            return;
        }
        auto start = std::chrono::steady_clock::now();
        box->control("emit", R"({"event":"mic_on_event","payload":"{\"Group\":\"1\",\"Id\":\"%d\",\"On\":1}","count":)" +
                                 std::to_string(kSignals) + "}");
        vask_test::eventually([&] { return all("mic_on_event", kSignals); }, std::chrono::seconds(60));
        state.SetIterationTime(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
        for (auto &reader : readers)
            lost += kSignals - static_cast<double>(std::min<size_t>(reader->count("mic_on_event"), kSignals));
    }
    state.counters["lost"] = lost;
    state.counters["clients"] = kClients;
}
BENCHMARK(EventStreamBurst)->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);

void PageFirstLoad(benchmark::State &state)
{
    httplib::Client client("127.0.0.1", console_port);
    client.set_tcp_nodelay(true);
    double bytes = 0;
    for (auto _ : state) {
        bytes = 0;
        for (const char *path : {"/", "/console.js", "/console.css"}) {
            httplib::Result result = client.Get(path);
            if (!result || result->status != 200) {
                state.SkipWithError("the page did not load");
                return;
            }
            bytes += static_cast<double>(result->body.size());
        }
    }
    state.counters["bytes"] = bytes;
}
BENCHMARK(PageFirstLoad)->Iterations(10);

} // namespace

int main(int argc, char **argv)
{
    if (argc == 2 && std::strcmp(argv[1], kBareServerOption) == 0)
        return serve_constant();
    return vask_bench::run_against_box(argc, argv, box, [] {
        if (!start_console())
            return 1;
        benchmark::RunSpecifiedBenchmarks();
        console.stop(SIGTERM);
        return 0;
    });
}
