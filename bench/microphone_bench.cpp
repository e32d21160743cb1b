// SPDX-License-Identifier: MIT
// The cost of the microphone control file's list operations as the list grows: reading the whole
// list, adding one item and deleting one, each a full cycle on the file (read, parse, print,
// replace), at 100, 1,000 and 10,000 stored items. The bare cJSON cycles on the same file are
// measured alongside as the floor the library builds on: reading and parsing it, and reading,
// changing one member, printing and writing it back (in place, or replaced through a flushed
// temporary file as the library's writers do).
//
// Every benchmark times its step alone (the step that puts the list back to its size is left out)
// and reports `us_per_item`, the microseconds of one step divided by the number of stored items:
// the same figure at every size means the cost grows linearly with the list.
#include <benchmark/benchmark.h>
#include <chrono>
#include <cjson/cJSON.h>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "file_cycle.h"
#include "libvask_external_device.h"
#include "process.h"
#include "tulo_log.h"

namespace {

// A system root in a fresh temporary folder holding a microphone control file with `count`
// control items, set as VASK_SYSROOT while it lives.
class stored_items {
public:
    explicit stored_items(int count)
    {
        TULO_LOG_set_level(TULO_LOG_LEVEL_ERROR);
        std::filesystem::create_directory(dir_.path() + "/etc");
        vask_test::write_file(
            file(), R"({"microphone_config":[],"microphone_group_conflict_config":[],)"
                    R"("microphone_default_config":{"cancel_mode":0},"microphone_general_conflict_config":{},)"
                    R"("microphone_multiple_speakers_mode":{"multi_mode":1,"cancel_mode":0}})");
        setenv("VASK_SYSROOT", dir_.path().c_str(), 1);
        std::vector<microphone_info> list;
        for (int i = 0; i < count; ++i)
            list.push_back(item(std::to_string(i / 100), std::to_string(i)));
        ready_ = UpdateMicrophoneControlConfig(&list) == 0;
    }
    ~stored_items() { unsetenv("VASK_SYSROOT"); }
    stored_items(const stored_items &) = delete;
    stored_items &operator=(const stored_items &) = delete;

    bool ready() const { return ready_; }
    std::string file() const { return dir_.path() + "/etc/microphone_control.json"; }

    static microphone_info item(const std::string &gr, const std::string &id)
    {
        microphone_info info;
        info.gr = gr;
        info.id = id;
        info.nt = "Seat " + id;
        info.cp_list = {{1, 2}, {3, 4}};
        info.l = 1;
        return info;
    }

private:
    vask_test::temp_dir dir_;
    bool ready_ = false;
};

// Runs `step` (which returns true on success) once per iteration on a file of state.range(0) items,
// timing it alone; `restore` runs untimed after each step.
template <typename Step, typename Restore>
void time_steps(benchmark::State &state, stored_items &stored, Step step, Restore restore)
{
    if (!stored.ready()) {
        state.SkipWithError("cannot prepare the file");
        return;
    }
    double total_us = 0;
    for (auto _ : state) {
        auto start = std::chrono::steady_clock::now();
        bool ok = step();
        std::chrono::duration<double, std::micro> spent = std::chrono::steady_clock::now() - start;
        if (!ok) {
            state.SkipWithError("the step failed");
            break;
        }
        restore();
        state.SetIterationTime(spent.count() / 1e6);
        total_us += spent.count();
    }
    if (state.iterations() > 0)
        state.counters["us_per_item"] =
            total_us / static_cast<double>(state.iterations()) / static_cast<double>(state.range(0));
}

void nothing() {}

void BM_ReadControlItems(benchmark::State &state)
{
    stored_items stored(static_cast<int>(state.range(0)));
    std::vector<microphone_info> list;
    time_steps(
        state, stored,
        [&] {
            return ReadRegisteredMicListFromConfig("", "", &list) == 0 &&
                   list.size() == static_cast<size_t>(state.range(0));
        },
        nothing);
}

void BM_AddControlItem(benchmark::State &state)
{
    stored_items stored(static_cast<int>(state.range(0)));
    microphone_info added = stored_items::item("new", "1");
    // The list goes back to its size after each add.
    time_steps(
        state, stored, [&] { return AddMicrophoneControlSettings(&added) == 0; },
        [&] { DeleteMicrophoneControlConfig(&added); });
}

void BM_DeleteControlItem(benchmark::State &state)
{
    stored_items stored(static_cast<int>(state.range(0)));
    // An item in the middle of the list: the match is searched for, not found at once.
    int middle = static_cast<int>(state.range(0)) / 2;
    microphone_info deleted = stored_items::item(std::to_string(middle / 100), std::to_string(middle));
    time_steps(
        state, stored, [&] { return DeleteMicrophoneControlConfig(&deleted) == 0; },
        [&] { AddMicrophoneControlSettings(&deleted); });
}

// The floor of a read: reading and parsing the same file with cJSON alone.
void BM_ParseFileOnly(benchmark::State &state)
{
    stored_items stored(static_cast<int>(state.range(0)));
    time_steps(
        state, stored,
        [&] {
            int items = -1;
            bool ok = vask_bench::bare_read(stored.file(), [&items](cJSON *root) {
                items = cJSON_GetArraySize(cJSON_GetObjectItem(root, "microphone_config"));
            });
            return ok && items == state.range(0);
        },
        nothing);
}

// The floor of a write: read, parse, change the cancel mode (0 and 1 in turn, so the size stays),
// print, write back.
void bare_file_cycle(benchmark::State &state, vask_bench::write_mode mode)
{
    stored_items stored(static_cast<int>(state.range(0)));
    int round = 0;
    time_steps(
        state, stored,
        [&] {
            return vask_bench::bare_cycle(stored.file(), mode, [&round](cJSON *root) {
                cJSON *defaults = cJSON_GetObjectItem(root, "microphone_default_config");
                cJSON_ReplaceItemInObjectCaseSensitive(defaults, "cancel_mode", cJSON_CreateNumber(++round % 2));
            });
        },
        nothing);
}

void BM_BareCycleInPlace(benchmark::State &state)
{
    bare_file_cycle(state, vask_bench::write_mode::in_place);
}

void BM_BareCycleReplace(benchmark::State &state)
{
    bare_file_cycle(state, vask_bench::write_mode::replace);
}

} // namespace

#define LIST_BENCHMARK(name) \
    BENCHMARK(name)->Arg(100)->Arg(1000)->Arg(10000)->UseManualTime()->Unit(benchmark::kMicrosecond)
LIST_BENCHMARK(BM_ParseFileOnly);
LIST_BENCHMARK(BM_ReadControlItems);
LIST_BENCHMARK(BM_BareCycleInPlace);
LIST_BENCHMARK(BM_BareCycleReplace);
LIST_BENCHMARK(BM_AddControlItem);
LIST_BENCHMARK(BM_DeleteControlItem);

BENCHMARK_MAIN();
