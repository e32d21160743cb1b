// SPDX-License-Identifier: MIT
// The protocol table of control devices and the reading of their parameter blocks.
#ifndef VASK_ED_CONFIG_PROTOCOL_H
#define VASK_ED_CONFIG_PROTOCOL_H

#include <cjson/cJSON.h>
#include <string>

#include "libvask_external_device.h"

namespace vask_ed {

// The parameter block a protocol keeps under "parameters".
enum class parameter_block { none, tcp, rs232 };

struct protocol_entry {
    int number;
    const char *name;
    parameter_block block;
    // Whether a stored name reads back as this number. Some names are written but never read
    // back (applications see them as unknown, -1).
    bool read_back;
};

// The entry whose name reads back as a number, or null for any other name (the empty one too).
const protocol_entry *find_readable_protocol(const std::string &name);

// Clears a record before it is read: not enabled, protocol 0, address "0.0.0.0", no credentials
// and no baud rate. The port is left as it was.
void reset_protocol_record(external_protocol_info *info);

// Reads section / "parameters" / "tcp" into the four text fields of `info` (a missing key, or
// one that is not a string, gives the empty string). A missing block logs "error:(null)" as a line
// of `function` at `line`, sets info->protocol to -1 and returns -1.
int read_tcp_block(const cJSON *section, external_protocol_info *info, const char *function, int line);

} // namespace vask_ed

#endif
