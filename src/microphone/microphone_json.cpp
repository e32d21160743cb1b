// SPDX-License-Identifier: MIT
// The JSON form of a microphone item: one flat object with short keys, written and read back.
#include <exception>
#include <string>
#include <unordered_set>

#include "core/record_fields.h"
#include "microphone/microphone_store.h"

namespace vask_ed {
namespace {

// Only nine pairs are read back, although the writer numbers on without bound.
constexpr int kReadablePairs = 9;

struct number_member {
    const char *key;
    int32_t microphone_info::*member;
};

// The numbers that follow the pairs, in the order they are written.
constexpr number_member kNumberMembers[] = {
    {"l", &microphone_info::l},
    {"o", &microphone_info::o},
    {"b", &microphone_info::b},
    {"s", &microphone_info::s},
};

const cJSON *member_of(const cJSON *object, const char *key)
{
    return cJSON_GetObjectItemCaseSensitive(object, key);
}

// "gr" and "id" are written as strings, but hand-made files and other writers use numbers too.
std::string identifier_text(const cJSON *node)
{
    if (cJSON_IsString(node))
        return string_value(node);
    if (cJSON_IsNumber(node))
        return std::to_string(node->valueint);
    return std::string();
}

std::string pair_key(char letter, size_t position)
{
    return letter + std::to_string(position);
}

bool add_text(cJSON *object, const char *key, const std::string &value)
{
    return value.empty() || cJSON_AddStringToObject(object, key, value.c_str()) != nullptr;
}

bool add_pairs(cJSON *object, const std::vector<cpreset> &pairs)
{
    // Kept: pairs are renumbered densely and the first pair of a given c wins; applications and
    // the service rely on both.
    std::unordered_set<int32_t> written;
    size_t position = 0;
    for (const cpreset &pair : pairs) {
        if (pair.c == -1 || pair.p == -1 || !written.insert(pair.c).second)
            continue;
        if (cJSON_AddNumberToObject(object, pair_key('c', position).c_str(), pair.c) == nullptr ||
            cJSON_AddNumberToObject(object, pair_key('p', position).c_str(), pair.p) == nullptr)
            return false;
        ++position;
    }
    return true;
}

// Whether element `element` of an item array matches `info` (see
// cJSON_DeleteMicroPhoneInfoFromArray for the rule).
bool item_matches(const cJSON *element, const microphone_info &info, bool match_group_only)
{
    const cJSON *id = member_of(element, "id");
    if (id == nullptr && !match_group_only)
        return false;
    const cJSON *gr = member_of(element, "gr");
    // Kept: next to a string "gr" the "id" is compared as text, next to a number "gr" as a number
    // turned into text; the service writes both forms and the matching follows the group's form.
    if (cJSON_IsString(gr)) {
        if (string_value(gr) != info.gr)
            return false;
        return match_group_only || string_value(id) == info.id;
    }
    if (cJSON_IsNumber(gr)) {
        if (std::to_string(gr->valueint) != info.gr)
            return false;
        return match_group_only || std::to_string(id->valueint) == info.id;
    }
    return false;
}

} // namespace

bool add_microphone_members(cJSON *object, const microphone_info &info, bool omit_id, bool omit_gr)
{
    if ((!omit_gr && !add_text(object, "gr", info.gr)) || (!omit_id && !add_text(object, "id", info.id)) ||
        !add_text(object, "nt", info.nt) || !add_pairs(object, info.cp_list))
        return false;
    for (const number_member &number : kNumberMembers) {
        int32_t value = info.*number.member;
        if (value >= 0 && cJSON_AddNumberToObject(object, number.key, value) == nullptr)
            return false;
    }
    return true;
}

void delete_matching_item(cJSON *array, const microphone_info &info, bool match_group_only)
{
    // A walk along the elements rather than by index: lists of thousands of items stay linear.
    cJSON *element = array->child;
    while (element != nullptr && !item_matches(element, info, match_group_only))
        element = element->next;
    if (element != nullptr)
        cJSON_Delete(cJSON_DetachItemViaPointer(array, element));
}

} // namespace vask_ed

using namespace vask_ed;

ED_API void cJSON_AddMicroPhoneInfo(cJSON *object, microphone_info *info, bool omit_id, bool omit_gr)
{
    if (object == nullptr || info == nullptr)
        return;
    try {
        add_microphone_members(object, *info, omit_id, omit_gr);
    } catch (const std::exception &) {
        // Out of memory: the members made so far stay, as for a node that cannot be made.
    }
}

ED_API int cJSON_GetMicroPhoneInfo(cJSON *object, microphone_info *info)
{
    if (object == nullptr || info == nullptr)
        return -1;
    try {
        info->cp_list.clear();
        info->gr = identifier_text(member_of(object, "gr"));
        info->id = identifier_text(member_of(object, "id"));
        info->nt = string_value(member_of(object, "nt"));
        for (int position = 0; position < kReadablePairs; ++position) {
            const cJSON *c = member_of(object, pair_key('c', static_cast<size_t>(position)).c_str());
            const cJSON *p = member_of(object, pair_key('p', static_cast<size_t>(position)).c_str());
            // A gap does not end the list: the pairs after it are still read.
            if (c != nullptr && p != nullptr)
                info->cp_list.push_back({c->valueint, p->valueint});
        }
        for (const number_member &number : kNumberMembers) {
            const cJSON *item = member_of(object, number.key);
            info->*number.member = item != nullptr ? item->valueint : -1;
        }
        return 0;
    } catch (const std::exception &) {
        return -1;
    }
}

ED_API void cJSON_DeleteMicroPhoneInfoFromArray(cJSON *array, microphone_info *info, bool match_group_only)
{
    if (array == nullptr || info == nullptr)
        return;
    try {
        delete_matching_item(array, *info, match_group_only);
    } catch (const std::exception &) {
        // Out of memory while comparing: nothing is removed.
    }
}

ED_API int ResetMicrophoneInfo(microphone_info *info)
{
    if (info == nullptr)
        return -1;
    info->gr.clear();
    info->id.clear();
    info->nt.clear();
    info->cp_list.clear();
    for (const number_member &number : kNumberMembers)
        info->*number.member = -1;
    return 0;
}
