// SPDX-License-Identifier: MIT
// The getters' readers of the service's reply documents. Each takes the parsed reply (null when the
// reply was empty or not JSON) and fills the caller's record the way its getter documents.
#ifndef VASK_ED_SERVICE_SERVICE_REPLIES_H
#define VASK_ED_SERVICE_SERVICE_REPLIES_H

#include <cjson/cJSON.h>
#include <vector>

#include "libvask_external_device.h"

namespace vask_ed {

// "isconnect" of "get_mic_connection_state"; 0 when missing.
void read_connection_state(const cJSON *reply, int *state);

// Appends one record per element of "mic_on_list" of "get_microphone_on_list".
void read_mic_on_list(const cJSON *reply, std::vector<mic_node> *list);

// Appends one record per element of "rs232_list" of "get_ex_rs232_device_list".
void read_rs232_device_list(const cJSON *reply, std::vector<external_rs232_info> *list);

// "hid" of "get_imshare_info"; false when missing.
void read_imshare_info(const cJSON *reply, imshare_info *info);

// The "voting_results" object of the voting methods that answer one.
void read_voting_results(const cJSON *reply, ed_voting_info *info);

} // namespace vask_ed

#endif
