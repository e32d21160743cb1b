// The cost of the microphone control file's list operations as the list grows: reading the whole
// list, adding one item and deleting one, each a full cycle on the file (read, parse, print,
// replace), at 100, 1,000 and 10,000 stored items. Reading and parsing the same file with cJSON
// alone is measured alongside as the floor the library builds on.
#include <benchmark/benchmark.h>
#include <cjson/cJSON.h>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "libvask_external_device.h"
#include "tulo_log.h"

namespace {

// A system root in a fresh temporary folder holding a microphone control file with `count`
// control items, set as VASK_SYSROOT while it lives.
class stored_items {
public:
    explicit stored_items(int count)
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "vask-mic-bench-XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr)
            return;
        root_ = pattern;
        std::filesystem::create_directory(root_ + "/etc");
        std::ofstream(root_ + "/etc/microphone_control.json")
            << R"({"microphone_config":[],"microphone_group_conflict_config":[],)"
               R"("microphone_default_config":{"cancel_mode":0},"microphone_general_conflict_config":{},)"
               R"("microphone_multiple_speakers_mode":{"multi_mode":1,"cancel_mode":0}})";
        setenv("VASK_SYSROOT", root_.c_str(), 1);
        std::vector<microphone_info> list;
        for (int i = 0; i < count; ++i)
            list.push_back(item(std::to_string(i / 100), std::to_string(i)));
        ready_ = UpdateMicrophoneControlConfig(&list) == 0;
    }
    ~stored_items()
    {
        unsetenv("VASK_SYSROOT");
        if (!root_.empty()) {
            std::error_code ignored;
            std::filesystem::remove_all(root_, ignored);
        }
    }
    stored_items(const stored_items &) = delete;
    stored_items &operator=(const stored_items &) = delete;

    bool ready() const { return ready_; }
    std::string file() const { return root_ + "/etc/microphone_control.json"; }

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
    std::string root_;
    bool ready_ = false;
};

void quiet_log()
{
    TULO_LOG_set_level(TULO_LOG_LEVEL_ERROR);
}

void BM_ReadControlItems(benchmark::State &state)
{
    quiet_log();
    stored_items stored(static_cast<int>(state.range(0)));
    if (!stored.ready()) {
        state.SkipWithError("cannot prepare the file");
        return;
    }
    std::vector<microphone_info> list;
    for (auto _ : state) {
        if (ReadRegisteredMicListFromConfig("", "", &list) != 0 || list.size() != static_cast<size_t>(state.range(0))) {
            state.SkipWithError("read failed");
            break;
        }
    }
    state.counters["items"] = static_cast<double>(state.range(0));
}

void BM_AddControlItem(benchmark::State &state)
{
    quiet_log();
    stored_items stored(static_cast<int>(state.range(0)));
    if (!stored.ready()) {
        state.SkipWithError("cannot prepare the file");
        return;
    }
    microphone_info added = stored_items::item("new", "1");
    for (auto _ : state) {
        if (AddMicrophoneControlSettings(&added) != 0) {
            state.SkipWithError("add failed");
            break;
        }
        // Keep the list at its size for the next round.
        state.PauseTiming();
        DeleteMicrophoneControlConfig(&added);
        state.ResumeTiming();
    }
}

void BM_DeleteControlItem(benchmark::State &state)
{
    quiet_log();
    stored_items stored(static_cast<int>(state.range(0)));
    if (!stored.ready()) {
        state.SkipWithError("cannot prepare the file");
        return;
    }
    // An item in the middle of the list: the match is searched for, not found at once.
    int middle = static_cast<int>(state.range(0)) / 2;
    microphone_info deleted = stored_items::item(std::to_string(middle / 100), std::to_string(middle));
    for (auto _ : state) {
        if (DeleteMicrophoneControlConfig(&deleted) != 0) {
            state.SkipWithError("delete failed");
            break;
        }
        state.PauseTiming();
        AddMicrophoneControlSettings(&deleted);
        state.ResumeTiming();
    }
}

// The floor: reading and parsing the same file with cJSON alone, without the library's cycle.
void BM_ParseFileOnly(benchmark::State &state)
{
    quiet_log();
    stored_items stored(static_cast<int>(state.range(0)));
    if (!stored.ready()) {
        state.SkipWithError("cannot prepare the file");
        return;
    }
    for (auto _ : state) {
        std::ifstream in(stored.file(), std::ios::binary);
        std::ostringstream text;
        text << in.rdbuf();
        cJSON *tree = cJSON_Parse(text.str().c_str());
        benchmark::DoNotOptimize(tree);
        cJSON_Delete(tree);
    }
}

} // namespace

BENCHMARK(BM_ParseFileOnly)->Arg(100)->Arg(1000)->Arg(10000)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_ReadControlItems)->Arg(100)->Arg(1000)->Arg(10000)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_AddControlItem)->Arg(100)->Arg(1000)->Arg(10000)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_DeleteControlItem)->Arg(100)->Arg(1000)->Arg(10000)->Unit(benchmark::kMicrosecond);

BENCHMARK_MAIN();
