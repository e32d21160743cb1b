// SPDX-License-Identifier: MIT
// The cost of one read or one write of /etc/external_device.json through the library, against the
// bare cJSON cycle on the same file. Every operation is the store alone, in a temporary system root
// holding the factory default file and no service: the setters that go on to tell the service
// (ed_set_mic_central_info, ed_set_external_rs232_control_info) spend the rest of their time on
// the bus, which the round-trip benchmarks measure.
//
// Two baselines: the bare cycle writing over the old text in place (the least a writer can do),
// and the bare cycle replacing the file through a flushed temporary file (what the library must do
// so that a crash leaves either the old or the new file); the library's writers do the latter, plus
// the locks that keep other threads and processes out. The microphone control file's operations,
// whose cost grows with its lists, are measured in microphone_bench.
//
// One setter is also measured whole, service call included: SetMicCentralInfo runs
// ed_set_mic_central_info against the simulator, and in the same iterations the bare replacing
// cycle on a copy of the same file plus the same request sent with bus_method_call_sync, so that
// the ratio to their sum is taken under the same load.
#include <algorithm>
#include <benchmark/benchmark.h>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "file_cycle.h"
#include "libvask_external_device.h"
#include "process.h"
#include "sim_process.h"
#include "tulo_log.h"

namespace {

// A system root holding the factory default configuration, set as VASK_SYSROOT while it lives.
class config_root {
public:
    config_root()
    {
        TULO_LOG_set_level(0);
        std::filesystem::create_directory(dir_.path() + "/etc");
        vask_test::write_file(dir_.path() + "/etc/external_device.json", vask_test::read_file(VASK_DEFAULT_CONFIG));
        setenv("VASK_SYSROOT", dir_.path().c_str(), 1);
    }
    ~config_root() { unsetenv("VASK_SYSROOT"); }
    config_root(const config_root &) = delete;
    config_root &operator=(const config_root &) = delete;

    std::string file() const { return dir_.path() + "/etc/external_device.json"; }

private:
    vask_test::temp_dir dir_;
};

// Two values of the same length, taken in turn, so that every write changes the file but not its size.
const char *alternate(int64_t round, const char *even, const char *odd)
{
    return round % 2 == 0 ? even : odd;
}

// Runs `operation(root, round)` (true on success) once per iteration in a fresh system root;
// `what` names it when it fails.
template <typename Operation>
void repeat(benchmark::State &state, const char *what, Operation operation)
{
    config_root root;
    // Counted here: State::iterations() does not advance inside the loop.
    int64_t round = 0;
    for (auto _ : state) {
        if (!operation(root, round++)) {
            state.SkipWithError(what);
            break;
        }
    }
}

void BareRead(benchmark::State &state)
{
    repeat(state, "bare read failed", [](const config_root &root, int64_t) {
        std::string baud;
        bool ok = vask_bench::bare_read(root.file(), [&baud](cJSON *document) {
            const cJSON *section = cJSON_GetObjectItem(document, "external_rs232_config");
            baud = cJSON_GetStringValue(cJSON_GetObjectItem(section, "baud_rate"));
        });
        return ok && baud == "9600";
    });
}

// The edit the library's RS232 writer makes: the speed, one value or the other.
void bare_cycle(benchmark::State &state, vask_bench::write_mode mode)
{
    repeat(state, "bare cycle failed", [mode](const config_root &root, int64_t round) {
        const char *baud = alternate(round, "4800", "9600");
        return vask_bench::bare_cycle(root.file(), mode, [baud](cJSON *document) {
            vask_bench::set_string(cJSON_GetObjectItem(document, "external_rs232_config"), "baud_rate", baud);
        });
    });
}

void BareCycleInPlace(benchmark::State &state)
{
    bare_cycle(state, vask_bench::write_mode::in_place);
}

void BareCycleReplace(benchmark::State &state)
{
    bare_cycle(state, vask_bench::write_mode::replace);
}

void ReadControlDevice(benchmark::State &state)
{
    external_protocol_info info{};
    repeat(state, "ReadControlDeviceConfig failed", [&info](const config_root &, int64_t) {
        return ReadControlDeviceConfig("miccentral_control", &info) == 0 && info.protocol == 0;
    });
}

void ReadRS232Control(benchmark::State &state)
{
    external_rs232_control info{};
    repeat(state, "ReadExternalRS232ControlConfig failed", [&info](const config_root &, int64_t) {
        return ReadExternalRS232ControlConfig(&info) == 0 && info.baud_rate == "9600";
    });
}

void ReadProjector(benchmark::State &state)
{
    external_protocol_info info{};
    repeat(state, "ReadProjectorConfig failed", [&info](const config_root &, int64_t) {
        return ReadProjectorConfig(&info) == 0 && info.protocol == 0;
    });
}

void ReadExternalControl(benchmark::State &state)
{
    external_control_info info{};
    repeat(state, "ReadExternalControlConfig failed", [&info](const config_root &, int64_t) {
        return ReadExternalControlConfig(&info) == 0 && info.port == "23";
    });
}

// The store of ed_set_mic_central_info: the mic central over TCP at one of two addresses in turn.
void StoreControlDevice(benchmark::State &state)
{
    repeat(state, "UpdateControlDeviceSettings failed", [](const config_root &, int64_t round) {
        return UpdateControlDeviceSettings("miccentral_control", true, "shure-tcp", "2202",
                                           alternate(round, "192.0.2.10", "192.0.2.11"), "secret", "",
                                           "admin") == 0;
    });
}

// The store of ed_set_external_rs232_control_info: the section's keys, one speed or the other.
void StoreRS232Control(benchmark::State &state)
{
    external_rs232_control info{};
    info.builtin_TTY = "ttyS0";
    info.port = "ttyS0";
    repeat(state, "UpdateExternalRS232ControlConfig failed", [&info](const config_root &, int64_t round) {
        info.baud_rate = alternate(round, "4800", "9600");
        return UpdateExternalRS232ControlConfig(&info) == 0;
    });
}

void StoreExternalControl(benchmark::State &state)
{
    external_control_info info{false, "23", "9600", "ttyS0"};
    repeat(state, "UpdateExternalControlConfig failed", [&info](const config_root &, int64_t round) {
        info.baud_rate = alternate(round, "4800", "9600");
        return UpdateExternalControlConfig(&info) == 0;
    });
}

// The broker and the simulator of SetMicCentralInfo, started by its first run and stopped at exit.
std::unique_ptr<vask_bench::simulated_box> g_box;

// The median of `samples` in microseconds.
double median_us(std::vector<double> samples)
{
    if (samples.empty())
        return 0;
    std::nth_element(samples.begin(), samples.begin() + samples.size() / 2, samples.end());
    return samples[samples.size() / 2];
}

// Runs `step` and adds its wall time in microseconds to `samples`; returns what `step` returns.
template <typename Step>
bool timed(std::vector<double> &samples, Step &&step)
{
    auto start = std::chrono::steady_clock::now();
    bool ok = step();
    samples.push_back(std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start).count());
    return ok;
}

// The library's setter (read to compare, store, tell the service), the mic central at one of two
// addresses in turn so that every call writes, against what it cannot do without: one bare
// replacing cycle on a file of the same size in the same folder, making the same change, and the
// same request to the service through a bus client of its own, on the same (direct) path. The
// three are timed in each iteration; the counters are their medians (set_us, bare_cycle_us,
// call_us), the median of bare cycle + call per iteration (bare_plus_call_us), and
// vs_bare_plus_call = set_us / bare_plus_call_us.
void SetMicCentralInfo(benchmark::State &state)
{
    if (!g_box) {
        g_box = std::make_unique<vask_bench::simulated_box>();
        setenv("VASK_SYSROOT", g_box->root().c_str(), 1);
        if (!g_box->ready() || ed_init() != 0) {
            state.SkipWithError("the broker, the simulator or the library did not start");
            return;
        }
    }
    const std::string folder = g_box->root() + "/etc";
    const std::string file = folder + "/external_device.json";
    const std::string bare_file = folder + "/bare_copy.json";
    std::filesystem::create_directories(folder);
    vask_test::write_file(file, vask_test::read_file(VASK_DEFAULT_CONFIG));
    setenv("VASK_SYSROOT", g_box->root().c_str(), 1);
    bus_client *caller = bus_client_new("bench_caller");
    external_protocol_info info{};
    info.enable = true;
    info.protocol = 1;
    info.port = "2202";
    info.username = "admin";
    info.password = "secret";
    info.ip_address = "192.0.2.11";
    // The first call adds the TCP block: from then on every call changes the address alone, and
    // the copy the bare cycle edits is the file as the setter leaves it.
    if (caller == nullptr || bus_connect(caller, 0) != BUS_OK || ed_set_mic_central_info(info) != 0) {
        state.SkipWithError("ed_set_mic_central_info failed");
        bus_client_free(caller);
        unsetenv("VASK_SYSROOT");
        return;
    }
    vask_test::write_file(bare_file, vask_test::read_file(file));
    std::vector<double> set_us, bare_us, call_us;
    // Counted here: State::iterations() does not advance inside the loop.
    int64_t round = 0;
    for (auto _ : state) {
        const char *address = alternate(round++, "192.0.2.10", "192.0.2.11");
        info.ip_address = address;
        char reply[BUS_REPLY_MAX];
        int length = 0;
        auto setter = [&] { return timed(set_us, [&info] { return ed_set_mic_central_info(info) == 0; }); };
        auto baseline = [&] {
            return timed(bare_us,
                         [&bare_file, address] {
                             return vask_bench::bare_cycle(
                                 bare_file, vask_bench::write_mode::replace, [address](cJSON *root) {
                                     cJSON *section = cJSON_GetObjectItem(root, "miccentral_control");
                                     cJSON *tcp = cJSON_GetObjectItem(cJSON_GetObjectItem(section, "parameters"), "tcp");
                                     vask_bench::set_string(tcp, "ip_address", address);
                                 });
                         }) &&
                   timed(call_us, [caller, &reply, &length] {
                       return bus_method_call_sync(caller, "external_device", "set_mic_central_info", nullptr, 0,
                                                   reply, &length, 30) == BUS_OK;
                   });
        };
        // Each side goes first every other iteration, so that neither always writes right after the
        // other's write (and the disk work that one left behind).
        bool ok = round % 2 == 0 ? setter() && baseline() : baseline() && setter();
        if (!ok) {
            state.SkipWithError("an iteration failed");
            break;
        }
    }
    bus_direct_stats library{}, bare{};
    if (!state.error_occurred() &&
        (ed_get_bus_direct_stats(&library) != 0 || bus_client_get_direct_stats(caller, &bare) != 0 ||
         library.calls_direct < set_us.size() || bare.calls_direct < call_us.size()))
        state.SkipWithError("the service calls did not all go over the direct socket");
    bus_client_free(caller);
    unsetenv("VASK_SYSROOT");
    // The baseline is the median of the two steps' sum in each iteration: a disk that stalls now and
    // then makes the median of a sum larger than the sum of the medians, and the setter's own time
    // is a median of a sum (its read, its store, its call) as well.
    std::vector<double> bare_plus_call_us(bare_us.size());
    for (size_t i = 0; i < bare_us.size() && i < call_us.size(); ++i)
        bare_plus_call_us[i] = bare_us[i] + call_us[i];
    double set = median_us(set_us), bare_plus_call = median_us(bare_plus_call_us);
    state.counters["set_us"] = set;
    state.counters["bare_cycle_us"] = median_us(bare_us);
    state.counters["call_us"] = median_us(call_us);
    state.counters["bare_plus_call_us"] = bare_plus_call;
    state.counters["vs_bare_plus_call"] = bare_plus_call > 0 ? set / bare_plus_call : 0;
}

// File operations wait on the disk (fsync) with the CPU idle: wall time is what they cost.
#define CONFIG_BENCHMARK(name) BENCHMARK(name)->UseRealTime()->Unit(benchmark::kMicrosecond)
CONFIG_BENCHMARK(BareRead);
CONFIG_BENCHMARK(ReadControlDevice);
CONFIG_BENCHMARK(ReadRS232Control);
CONFIG_BENCHMARK(ReadProjector);
CONFIG_BENCHMARK(ReadExternalControl);
CONFIG_BENCHMARK(BareCycleInPlace);
CONFIG_BENCHMARK(BareCycleReplace);
CONFIG_BENCHMARK(StoreControlDevice);
CONFIG_BENCHMARK(StoreRS232Control);
CONFIG_BENCHMARK(StoreExternalControl);
// Fixed iterations: one run, so the medians come from one set of calls taken in turn.
CONFIG_BENCHMARK(SetMicCentralInfo)->Iterations(400);

} // namespace

int main(int argc, char **argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    TULO_LOG_set_level(0);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    if (g_box) {
        ed_release();
        g_box.reset();
    }
    return 0;
}
