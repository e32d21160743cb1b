// SPDX-License-Identifier: MIT
// The library's records as the API's JSON, and back: one function per record kind, shared by the
// request handlers and the event stream.
#ifndef VASK_CONSOLE_RECORDS_H
#define VASK_CONSOLE_RECORDS_H

#include <libvask_external_device.h>
#include <string>

#include "json.h"

namespace console {

// {"status","agree","disagree","abandon","total","time"}: the vote as read or as signalled.
template <typename Vote> json_ptr vote_json(const Vote &vote)
{
    json_ptr out = json_object();
    cJSON_AddNumberToObject(out.get(), "status", vote.status);
    cJSON_AddNumberToObject(out.get(), "agree", vote.agree);
    cJSON_AddNumberToObject(out.get(), "disagree", vote.disagree);
    cJSON_AddNumberToObject(out.get(), "abandon", vote.abandon);
    cJSON_AddNumberToObject(out.get(), "total", vote.total);
    cJSON_AddNumberToObject(out.get(), "time", vote.time);
    return out;
}

// {"group","id","on"}: a microphone from the on-list or from a microphone signal.
json_ptr microphone_json(const std::string &group, const std::string &id, bool on);

// A control device's stored settings, with "protocol" its number and "protocol_name" its name.
json_ptr protocol_json(const external_protocol_info &info, const std::string &protocol_name);

// Changes `info` by the members of `body` (enable, protocol as a number or a name of the protocol
// table, ip_address, username, password, baud_rate, port), checking each.
problem merge_protocol(const cJSON *body, external_protocol_info &info);

// Checks of single values shared by the setters.
problem check_ip_address(const char *key, const std::string &value);
problem check_baud_rate(const char *key, const std::string &value);
problem check_tcp_port(const char *key, const std::string &value);

// A microphone control item's JSON form, the one the configuration file holds.
json_ptr item_json(microphone_info &item, bool omit_id, bool omit_gr);
// Reads item `object` into `item`: "gr" and "id" (strings; required as the flags say, refused when
// `id_allowed` is false), "nt", "c0".."c8" with "p0".."p8" in pairs, "l", "o", "b", "s" (whole numbers >= 0).
problem read_item(const cJSON *object, microphone_info &item, bool gr_required, bool id_required, bool id_allowed);

} // namespace console

#endif
