// SPDX-License-Identifier: MIT
// The protocol table of control devices: numbers, names and parameter blocks.
#include "config/protocol.h"

#include "config/config_cycle.h"
#include "core/record_fields.h"

namespace vask_ed {
namespace {

// Indexed by number + 1, from -1 to 26. The numbers are stored by applications and the service:
// they stay exactly as they are, gaps included.
const protocol_entry kProtocols[] = {
    {-1, "", parameter_block::none, false},
    {0, "none", parameter_block::none, true},
    {1, "tcp", parameter_block::tcp, true},
    {2, "shure-tcp", parameter_block::tcp, true},
    {3, "show-tcp", parameter_block::tcp, true},
    {4, "creator-tcp", parameter_block::tcp, false},
    {5, "sennheiser-tcp", parameter_block::tcp, true},
    {6, "bosch-tcp", parameter_block::tcp, true},
    {7, "bxb-tcp", parameter_block::tcp, false},
    {8, "hayaco-tcp", parameter_block::tcp, true},
    {9, "televic-tcp", parameter_block::tcp, true},
    {10, "atuc-tcp", parameter_block::tcp, true},
    {11, "atnd-tcp", parameter_block::tcp, true},
    {12, "atnd_8_district-tcp", parameter_block::tcp, true},
    {13, "bosch_ccu2-tcp", parameter_block::tcp, true},
    {14, "televic_dcerno-tcp", parameter_block::tcp, true},
    {15, "shure_mxa-tcp", parameter_block::tcp, true},
    {16, "shure_mxw-tcp", parameter_block::tcp, true},
    {17, "shure_mxcw-tcp", parameter_block::tcp, true},
    {18, "televic_tlv-tcp", parameter_block::tcp, true},
    {19, "bxb_fcs-tcp", parameter_block::tcp, true},
    {20, "none", parameter_block::none, false},
    {21, "rs232", parameter_block::rs232, true},
    {22, "show-rs232", parameter_block::none, false},
    {23, "none", parameter_block::none, false},
    {24, "", parameter_block::none, false},
    {25, "usb-olvin-s1", parameter_block::none, true},
    {26, "", parameter_block::none, false},
};

constexpr int kFirstProtocol = -1;
constexpr int kLastProtocol = 26;
static_assert(sizeof kProtocols / sizeof kProtocols[0] == kLastProtocol - kFirstProtocol + 1,
              "one entry per number");

const string_field<external_protocol_info> kTcpFields[] = {
    {"ip_address", &external_protocol_info::ip_address},
    {"password", &external_protocol_info::password},
    {"username", &external_protocol_info::username},
    {"port", &external_protocol_info::port},
};

} // namespace

const protocol_entry *find_readable_protocol(const std::string &name)
{
    for (const protocol_entry &entry : kProtocols)
        if (entry.read_back && name == entry.name)
            return &entry;
    return nullptr;
}

void reset_protocol_record(external_protocol_info *info)
{
    info->enable = false;
    info->protocol = 0;
    info->ip_address = "0.0.0.0";
    info->username.clear();
    info->password.clear();
    info->baud_rate.clear();
}

int read_tcp_block(const cJSON *section, external_protocol_info *info, const char *function, int line)
{
    const cJSON *tcp = cJSON_GetObjectItem(cJSON_GetObjectItem(section, "parameters"), "tcp");
    if (tcp == nullptr) {
        TULO_LOG_write_newline(ED_LOG_MODULE, 0, kLogUtils, line, function, "%s", kNoParseError);
        info->protocol = -1;
        return -1;
    }
    read_string_fields(tcp, kTcpFields, *info);
    return 0;
}

} // namespace vask_ed

using namespace vask_ed;

ED_API std::string GetProtocolString(int protocol)
{
    if (protocol < kFirstProtocol || protocol > kLastProtocol)
        return "none";
    return kProtocols[protocol - kFirstProtocol].name;
}

ED_API int cJSON_ReadTCPDeviceConfig(cJSON *section, external_protocol_info *info)
{
    if (info == nullptr)
        return -1;
    return read_tcp_block(section, info, "cJSON_ReadTCPDeviceConfig", __LINE__);
}
