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
#include <benchmark/benchmark.h>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "file_cycle.h"
#include "libvask_external_device.h"
#include "process.h"
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
    for (auto _ : state) {
        if (!operation(root, state.iterations())) {
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

} // namespace

BENCHMARK_MAIN();
