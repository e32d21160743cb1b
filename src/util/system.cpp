// SPDX-License-Identifier: MIT
// Shell commands, time stamps, BMP headers, IPv4 addresses and the box's identity files.
#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <exception>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include "core/internal.h"
#include "core/sysroot.h"
#include "util/shell_command.h"

namespace vask_ed {
namespace {

constexpr size_t kBmpHeaderSize = 54;
constexpr size_t kIdentityMax = 24;

uint32_t little_endian_32(const unsigned char *bytes)
{
    return static_cast<uint32_t>(bytes[0]) | static_cast<uint32_t>(bytes[1]) << 8 |
           static_cast<uint32_t>(bytes[2]) << 16 | static_cast<uint32_t>(bytes[3]) << 24;
}

// Reads the start of one of the box's identity files. `function` names the caller in the log.
std::string read_identity_file(const char *fixed_path, const char *function)
{
    std::string path = system_path(fixed_path);
    file_ptr file(fopen(path.c_str(), "rbe"));
    if (!file) {
        int error = errno;
        // Kept: the message names the description file for the host name as well.
        TULO_LOG_write_newline(ED_LOG_MODULE, 0, kLogUtils, __LINE__, function, "file open %s error %d",
                               system_path("/etc/description").c_str(), error);
        return std::string();
    }
    char buffer[kIdentityMax + 1] = {};
    if (fread(buffer, 1, kIdentityMax, file.get()) < kIdentityMax && ferror(file.get()))
        TULO_LOG_write_newline(ED_LOG_MODULE, 1, kLogUtils, __LINE__, function, "read failed %d", errno);
    return buffer;
}

} // namespace
} // namespace vask_ed

using namespace vask_ed;

ED_API int ExecShellCmd(const std::string &cmd, std::string *output)
{
    int status;
    try {
        status = run_shell_reading(cmd, output);
    } catch (const std::exception &) {
        return -1;
    }
    // With SIGCHLD ignored the child is reaped before its status can be collected.
    if (status < 0 && errno == ECHILD)
        return 0;
    if (status < 0 || (status & 0x7f) != 0)
        return -1;
    return (status >> 8) & 0xff;
}

ED_API int64_t GetTimeStamp()
{
    tzset();
    struct timeval now;
    gettimeofday(&now, nullptr);
    return static_cast<int64_t>(now.tv_sec);
}

ED_API uint64_t GetTimeStampU()
{
    struct timeval now;
    gettimeofday(&now, nullptr);
    return static_cast<uint64_t>(now.tv_sec) * 1000000u + static_cast<uint64_t>(now.tv_usec);
}

ED_API int MakeTimeString(long t, std::string *out)
{
    if (out == nullptr)
        return -1;
    time_t when = static_cast<time_t>(t);
    struct tm local;
    if (localtime_r(&when, &local) == nullptr)
        return -1;
    char text[128];
    size_t length = strftime(text, sizeof text, "%Y_%m_%d_%H_%M_%S", &local);
    out->assign(text, length);
    return 0;
}

ED_API double GetCurrentTzOffset()
{
    time_t now = time(nullptr);
    struct tm local;
    struct tm utc;
    localtime_r(&now, &local);
    gmtime_r(&now, &utc);
    return difftime(mktime(&local), mktime(&utc));
}

ED_API int GetBmpWidthHeight(const std::string &path, unsigned int *width, unsigned int *height)
{
    if (width == nullptr || height == nullptr)
        return -1;
    file_ptr file(fopen(path.c_str(), "rbe"));
    if (!file) {
        TULO_LOG_write_newline(ED_LOG_MODULE, 0, kLogUtils, __LINE__, "GetBmpWidthHeight",
                               "Failed to open bmp file: %s", path.c_str());
        return -1;
    }
    unsigned char header[kBmpHeaderSize] = {};
    size_t got = fread(header, 1, sizeof header, file.get());
    if (got != sizeof header)
        TULO_LOG_write_newline(ED_LOG_MODULE, 1, kLogUtils, __LINE__, "GetBmpWidthHeight",
                               "read file query %d , but %d", static_cast<int>(sizeof header), static_cast<int>(got));
    *width = little_endian_32(header + 18);
    *height = little_endian_32(header + 22);
    return 0;
}

ED_API bool IsValidIpAddress(const std::string &ip)
{
    struct in_addr address;
    return inet_pton(AF_INET, ip.c_str(), &address) == 1;
}

ED_API bool IsMulticastIpAddress(const std::string &ip)
{
    struct in_addr address;
    if (inet_pton(AF_INET, ip.c_str(), &address) != 1)
        return false;
    uint32_t first_octet = ntohl(address.s_addr) >> 24;
    return first_octet >= 224 && first_octet <= 239;
}

ED_API int GetIpAddress(const std::string &ifname, std::string *ip)
{
    if (ip == nullptr)
        return -1;
    int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return -1;
    struct ifreq request;
    memset(&request, 0, sizeof request);
    memcpy(request.ifr_name, ifname.data(), std::min(ifname.size(), sizeof request.ifr_name));
    request.ifr_addr.sa_family = AF_INET;
    int result = ioctl(fd, SIOCGIFADDR, &request);
    close(fd);
    if (result != 0)
        return -1;
    const auto *address = reinterpret_cast<const struct sockaddr_in *>(&request.ifr_addr);
    char text[INET_ADDRSTRLEN];
    if (inet_ntop(AF_INET, &address->sin_addr, text, sizeof text) == nullptr)
        return -1;
    *ip = text;
    return 0;
}

ED_API std::string GetDeviceHostname()
{
    return read_identity_file("/etc/hostname", "GetDeviceHostname");
}

ED_API std::string GetDeviceDescription()
{
    return read_identity_file("/etc/description", "GetDeviceDescription");
}
