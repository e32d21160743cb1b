// SPDX-License-Identifier: MIT
// Topic names and the broker address.
#include "bus_internal.h"

#include <cstdlib>
#include <cstring>

namespace vask_bus {

bool valid_name(const char *name)
{
    if (name == nullptr || *name == '\0')
        return false;
    // A name is one topic level: no separators and no wildcards.
    return strpbrk(name, "/+#") == nullptr && strlen(name) <= 256;
}

bool valid_namespace(const char *ns)
{
    if (ns == nullptr || *ns == '\0')
        return true;
    size_t length = strlen(ns);
    return length <= 128 && strpbrk(ns, "+#") == nullptr && ns[0] != '/' && ns[length - 1] != '/' &&
           strstr(ns, "//") == nullptr;
}

std::string signal_topic(const std::string &service, const std::string &event)
{
    return service + "/signal/" + event;
}

std::string method_topic(const std::string &service, const std::string &method)
{
    return service + "/method/" + method;
}

std::string state_topic(const std::string &service)
{
    return service + "/state";
}

bool parse_broker_url(const char *url, broker_address *out)
{
    std::string text = url != nullptr ? url : "";
    broker_address address;
    std::string rest;
    if (text.rfind("mqtt://", 0) == 0) {
        rest = text.substr(7);
        address.port = 1883;
    } else if (text.rfind("mqtts://", 0) == 0) {
        rest = text.substr(8);
        address.port = 8883;
        address.tls = true;
    } else {
        return false;
    }
    if (!rest.empty() && rest.back() == '/')
        rest.pop_back();
    std::string port_text;
    if (!rest.empty() && rest.front() == '[') {
        size_t close = rest.find(']');
        if (close == std::string::npos)
            return false;
        address.host = rest.substr(1, close - 1);
        std::string after = rest.substr(close + 1);
        if (!after.empty()) {
            if (after.front() != ':')
                return false;
            port_text = after.substr(1);
        }
    } else {
        size_t colon = rest.rfind(':');
        address.host = rest.substr(0, colon);
        if (colon != std::string::npos)
            port_text = rest.substr(colon + 1);
    }
    if (address.host.empty() || address.host.find_first_of("/@ ") != std::string::npos)
        return false;
    if (!port_text.empty() || rest.find(':') != std::string::npos) {
        if (port_text.empty() || port_text.size() > 5 ||
            port_text.find_first_not_of("0123456789") != std::string::npos)
            return false;
        int port = atoi(port_text.c_str());
        if (port < 1 || port > 65535)
            return false;
        address.port = port;
    }
    *out = address;
    return true;
}

} // namespace vask_bus
