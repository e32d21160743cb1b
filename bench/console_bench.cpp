// SPDX-License-Identifier: MIT
// vask-console against the library: GET /api/voting over a keep-alive connection against
// ed_get_voting in this process, both on the same simulator and broker in the same run; a burst of
// 1,000 signals to 50 event-stream clients; the bytes of the page's first load; and, for the floor
// under the first, a bare cpp-httplib server answering a constant body on the same kind of connection.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <httplib.h>
#include <thread>
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

// GET `path` on one keep-alive connection to `port`, as a browser's fetch does, each call timed.
void timed_gets(benchmark::State &state, int port, const char *path)
{
    httplib::Client client("127.0.0.1", port);
    client.set_keep_alive(true);
    client.set_tcp_nodelay(true); // as curl and browsers do
    timed_calls(state, [&client, path] {
        httplib::Result result = client.Get(path);
        return result && result->status == 200;
    });
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
