// SPDX-License-Identifier: MIT
// Hex text of serial commands and the serial speeds of the RS232 features.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <termios.h>

#include "core/internal.h"

namespace vask_ed {
namespace {

struct baud_rate {
    int rate;
    speed_t constant;
};

const baud_rate kBaudRates[] = {
    {0, B0},             {50, B50},           {75, B75},           {110, B110},         {134, B134},
    {150, B150},         {200, B200},         {300, B300},         {600, B600},         {1200, B1200},
    {1800, B1800},       {2400, B2400},       {4800, B4800},       {9600, B9600},       {19200, B19200},
    {38400, B38400},     {57600, B57600},     {115200, B115200},   {230400, B230400},   {460800, B460800},
    {500000, B500000},   {576000, B576000},   {921600, B921600},   {1000000, B1000000}, {1152000, B1152000},
    {1500000, B1500000}, {2000000, B2000000}, {2500000, B2500000}, {3000000, B3000000}, {3500000, B3500000},
    {4000000, B4000000},
};

constexpr size_t kHexTextMax = 256;

} // namespace
} // namespace vask_ed

using namespace vask_ed;

ED_API bool IntReverseSort(int a, int b)
{
    return a > b;
}

ED_API int RepresentHexInByte(const char *hex, unsigned char *out)
{
    if (hex == nullptr || out == nullptr || strnlen(hex, 16) < 16)
        return -1;
    for (int i = 0; i < 8; ++i)
        sscanf(hex + 2 * i, "%2hhx", &out[i]);
    return 1;
}

ED_API int ConvertBaudrate(int baud)
{
    for (const baud_rate &entry : kBaudRates)
        if (entry.rate == baud)
            return static_cast<int>(entry.constant);
    return -1;
}

ED_API int parse_hex(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    // Bad input never aborts the application.
    return -1;
}

ED_API int String_To_HexArray(const std::string &hex, unsigned char *out, int *count)
{
    if (count != nullptr)
        *count = 0;
    if (out == nullptr || count == nullptr)
        return -1;
    if (hex.size() > kHexTextMax || hex.size() % 2 != 0) {
        TULO_LOG_write_newline(ED_LOG_MODULE, 0, kLogUtils, __LINE__, "String_To_HexArray",
                               "overflow or string must odd length");
        return -1;
    }
    // Checked before anything is written, so that a refused string leaves `out` as it was.
    for (char c : hex) {
        if (parse_hex(c) < 0) {
            TULO_LOG_write_newline(ED_LOG_MODULE, 0, kLogUtils, __LINE__, "String_To_HexArray", "invalid hex digit");
            return -1;
        }
    }
    for (size_t i = 0; i < hex.size(); i += 2)
        out[i / 2] = static_cast<unsigned char>(parse_hex(hex[i]) << 4 | parse_hex(hex[i + 1]));
    *count = static_cast<int>(hex.size() / 2);
    return 0;
}

ED_API int TuloRS232Cmd_To_String(const char *bytes, std::string *out, int n)
{
    if (out == nullptr || (bytes == nullptr && n >= 1))
        return -1;
    for (int i = 0; i < n; ++i) {
        char pair[3];
        snprintf(pair, sizeof pair, "%02x", static_cast<unsigned char>(bytes[i]));
        out->append(pair, 2);
    }
    return 0;
}
