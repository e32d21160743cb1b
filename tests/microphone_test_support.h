// SPDX-License-Identifier: MIT
// A temporary system root holding the microphone control file, and helpers to build items and to
// compare the file and the log lines exactly.
#ifndef VASK_TEST_MICROPHONE_TEST_SUPPORT_H
#define VASK_TEST_MICROPHONE_TEST_SUPPORT_H

#include <cjson/cJSON.h>
#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <ostream>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "libvask_external_device.h"
#include "json_text.h"
#include "log_capture.h"
#include "log_lines.h"
#include "process.h"

namespace vask_test {

// The default microphone control file shipped with the project.
inline std::string default_mic_document()
{
    return read_file(VASK_DEFAULT_MIC_CONFIG);
}

// A system root in a temporary folder, set as VASK_SYSROOT while it lives; /etc holds the default
// microphone control file unless `seeded` is false.
class mic_root {
public:
    explicit mic_root(bool seeded = true)
    {
        mkdir((dir_.path() + "/etc").c_str(), 0755);
        if (seeded)
            set_file(default_mic_document());
        setenv("VASK_SYSROOT", dir_.path().c_str(), 1);
    }
    ~mic_root() { unsetenv("VASK_SYSROOT"); }
    mic_root(const mic_root &) = delete;
    mic_root &operator=(const mic_root &) = delete;

    std::string path() const { return dir_.path() + "/etc/microphone_control.json"; }
    std::string file() const { return read_file(path()); }
    void set_file(const std::string &text) const { write_file(path(), text); }
    // Sets the file to `compact` printed as the library prints it.
    void set_document(const std::string &compact) const
    {
        std::string text = formatted(compact);
        ASSERT_FALSE(text.empty()) << compact;
        set_file(text);
    }
    void remove_file() const { unlink(path().c_str()); }
    bool has_file() const { return access(path().c_str(), F_OK) == 0; }

private:
    temp_dir dir_;
};

inline microphone_info make_item(const std::string &gr, const std::string &id, const std::string &nt = std::string(),
                                 std::vector<cpreset> pairs = {}, int l = -1, int o = -1, int b = -1, int s = -1)
{
    microphone_info item;
    item.gr = gr;
    item.id = id;
    item.nt = nt;
    item.cp_list = std::move(pairs);
    item.l = l;
    item.o = o;
    item.b = b;
    item.s = s;
    return item;
}

// The three mode sections of the factory default document, in its order.
const char kModes[] = R"("microphone_default_config":{"cancel_mode":0},"microphone_general_conflict_config":{},)"
                      R"("microphone_multiple_speakers_mode":{"multi_mode":1,"cancel_mode":0})";

// The default document with the two lists given as JSON arrays.
inline std::string with_lists(const std::string &controls, const std::string &conflicts)
{
    return R"({"microphone_config":)" + controls + R"(,"microphone_group_conflict_config":)" + conflicts + "," +
           kModes + "}";
}

// The JSON text (compact) of `item` as cJSON_AddMicroPhoneInfo writes it.
inline std::string item_json(microphone_info item, bool omit_id = false, bool omit_gr = false)
{
    cJSON *object = cJSON_CreateObject();
    cJSON_AddMicroPhoneInfo(object, &item, omit_id, omit_gr);
    char *text = cJSON_PrintUnformatted(object);
    std::string result = text != nullptr ? text : "";
    cJSON_free(text);
    cJSON_Delete(object);
    return result;
}

// The (gr, id) pairs of a list, for comparing lists at a glance.
inline std::vector<std::pair<std::string, std::string>> identities(const std::vector<microphone_info> &list)
{
    std::vector<std::pair<std::string, std::string>> result;
    for (const microphone_info &item : list)
        result.emplace_back(item.gr, item.id);
    return result;
}

inline bool same_item(const microphone_info &a, const microphone_info &b)
{
    if (a.cp_list.size() != b.cp_list.size())
        return false;
    for (size_t i = 0; i < a.cp_list.size(); ++i)
        if (a.cp_list[i].c != b.cp_list[i].c || a.cp_list[i].p != b.cp_list[i].p)
            return false;
    return a.tag == b.tag && a.gr == b.gr && a.id == b.id && a.nt == b.nt && a.l == b.l && a.o == b.o &&
           a.b == b.b && a.s == b.s;
}

// One expected log line.
using expected_line = line_fields;

// A line of a configuration function of the microphone file (source "utils").
inline expected_line utils_line(int level, const std::string &function, const std::string &message)
{
    return {level, "utils", kAnyLine, function, message};
}

} // namespace vask_test

#endif
