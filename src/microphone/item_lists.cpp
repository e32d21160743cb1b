// SPDX-License-Identifier: MIT
// Reading, adding, replacing and deleting the items of one list of the microphone control file.
#include "microphone/item_lists.h"

#include <unordered_map>

#include "config/json_members.h"

namespace vask_ed {
namespace {

// What the cycle returns for a text that is not JSON, told apart from a file that cannot be opened
// (the logic itself returns only 0 and -1).
constexpr int kNotJson = 1;

// The list's array in `root`; null, logged, when the root is not an object or the array is missing
// or is not an array (a writer must not add items to something else).
cJSON *find_array(const config_call &call, cJSON *root, const item_list &kind)
{
    cJSON *array = cJSON_IsObject(root) ? cJSON_GetObjectItem(root, kind.array) : nullptr;
    if (!cJSON_IsArray(array)) {
        log_config_error(call, kNoParseError);
        return nullptr;
    }
    return array;
}

// gr and id cannot hold a zero byte (they come from JSON text or C strings), so it separates them.
std::string identity(const microphone_info &item)
{
    std::string key = item.gr;
    key += '\0';
    key += item.id;
    return key;
}

void collect_items(const cJSON *array, const std::string &gr, const std::string &id,
                   std::vector<microphone_info> *list)
{
    std::vector<microphone_info> entries;
    const cJSON *element = nullptr;
    cJSON_ArrayForEach(element, array)
    {
        microphone_info entry;
        if (cJSON_GetMicroPhoneInfo(const_cast<cJSON *>(element), &entry) != 0)
            continue;
        if (entry.gr.empty() || (!gr.empty() && entry.gr != gr) || (!id.empty() && entry.id != id))
            continue;
        entries.push_back(std::move(entry));
    }
    // The list UpdateControlItem builds from these entries one by one (an entry replaces the one of
    // the same identity, which moves to the end), without its walk of the whole list per entry: each
    // identity keeps its last entry, in the order of those last entries.
    std::unordered_map<std::string, size_t> last;
    for (size_t i = 0; i < entries.size(); ++i)
        last[identity(entries[i])] = i;
    std::vector<microphone_info> kept;
    kept.reserve(last.size());
    for (size_t i = 0; i < entries.size(); ++i)
        if (last[identity(entries[i])] == i)
            kept.push_back(std::move(entries[i]));
    list->swap(kept);
}

bool append_item(cJSON *array, const item_list &kind, const microphone_info &item)
{
    json_ptr object(cJSON_CreateObject());
    if (!object || !add_microphone_members(object.get(), item, kind.by_group, false) ||
        !cJSON_AddItemToArray(array, object.get()))
        return false;
    object.release();
    return true;
}

void log_record(const config_call &call, const item_list &kind, const microphone_info &record)
{
    if (kind.by_group)
        TULO_LOG_write_newline(ED_LOG_MODULE, 2, call.source, call.line, call.function, "Update group_conflict %s",
                               record.gr.c_str());
    else
        TULO_LOG_write_newline(ED_LOG_MODULE, 2, call.source, call.line, call.function, "Update microphone_list %s-%s",
                               record.gr.c_str(), record.id.c_str());
}

// Puts a new array holding `list` at the end of `root`, in place of the old one.
int put_list(const config_call &call, const item_list &kind, const std::vector<microphone_info> &list, cJSON *root)
{
    json_ptr array(cJSON_CreateArray());
    if (!array)
        return -1;
    for (const microphone_info &record : list) {
        log_record(call, kind, record);
        if (!append_item(array.get(), kind, record))
            return -1;
    }
    return attach(root, kind.array, array.release()) ? 0 : -1;
}

// What the whole-list writer hands to its parse-failure hook; `result` stays -1 unless the rebuilt
// file is stored.
struct rebuild_context {
    const item_list &kind;
    const std::vector<microphone_info> &list;
    int result;
};

// Runs under the configuration lock once the parse failure is logged: the damaged content is
// dropped and the file holds the new list alone, so that the application can always store its list.
void rebuild_document(const config_call &call, void *context)
{
    auto *rebuilding = static_cast<rebuild_context *>(context);
    json_ptr root(cJSON_CreateObject());
    if (!root) {
        log_config_error(call, kNoParseError);
        return;
    }
    if (put_list(call, rebuilding->kind, rebuilding->list, root.get()) == 0)
        rebuilding->result = store_config_document(call, root.get());
}

} // namespace

int read_items(const config_call &call, const item_list &kind, const std::string &gr, const std::string &id,
               std::vector<microphone_info> *list)
{
    config_call reading = call;
    reading.parse_failed_result = kNotJson;
    log_trace(reading, kind.read_entry);
    int result = read_config(reading, [&](const cJSON *root, const cJSON *) {
        list->clear();
        const cJSON *array = find_array(reading, const_cast<cJSON *>(root), kind);
        if (array == nullptr)
            return -1;
        collect_items(array, gr, id, list);
        return 0;
    });
    if (result == kNotJson) {
        // The file was open: the list is emptied before the text is parsed.
        list->clear();
        return -1;
    }
    return result;
}

int add_item(const config_call &call, const item_list &kind, const microphone_info &item)
{
    log_trace(call, kind.add_entry);
    return edit_config(call, [&](cJSON *root, cJSON *) {
        cJSON *array = find_array(call, root, kind);
        if (array == nullptr)
            return -1;
        delete_matching_item(array, item, kind.by_group);
        return append_item(array, kind, item) ? 0 : -1;
    });
}

int replace_items(const config_call &base, const item_list &kind, const std::vector<microphone_info> &list)
{
    rebuild_context rebuilding{kind, list, -1};
    config_call call = base;
    call.parse_failed_result = kNotJson;
    call.on_parse_failure = rebuild_document;
    call.parse_failure_context = &rebuilding;
    log_trace(call, kind.update_entry);
    int result = edit_config(call, [&](cJSON *root, cJSON *) {
        if (!cJSON_IsObject(root)) {
            log_config_error(call, kNoParseError);
            return -1;
        }
        return put_list(call, kind, list, root);
    });
    return result == kNotJson ? rebuilding.result : result;
}

int delete_item(const config_call &call, const item_list &kind, const microphone_info &item)
{
    log_trace(call, kind.delete_entry);
    return edit_config(call, [&](cJSON *root, cJSON *) {
        cJSON *array = find_array(call, root, kind);
        if (array == nullptr)
            return -1;
        delete_matching_item(array, item, kind.by_group);
        return 0;
    });
}

} // namespace vask_ed
