// SPDX-License-Identifier: MIT
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <sys/stat.h>

#include "http_parts.h"

namespace console {

namespace {

struct media_type {
    const char *extension;
    const char *type;
};
constexpr media_type kMediaTypes[] = {
    {".html", "text/html; charset=utf-8"}, {".js", "text/javascript; charset=utf-8"},
    {".css", "text/css; charset=utf-8"},   {".json", "application/json"},
    {".svg", "image/svg+xml"},             {".png", "image/png"},
    {".ico", "image/x-icon"},
};

const char *media_type_of(const std::string &path)
{
    for (const media_type &candidate : kMediaTypes) {
        std::string extension = candidate.extension;
        if (path.size() > extension.size() && path.compare(path.size() - extension.size(), extension.size(),
                                                           extension) == 0)
            return candidate.type;
    }
    return "application/octet-stream";
}

void not_found(httplib::Response &response)
{
    response.status = 404;
    response.set_content("not found\n", "text/plain; charset=utf-8");
}

} // namespace

void serve_file(const std::string &root, const httplib::Request &request, httplib::Response &response)
{
    std::string relative = request.path == "/" ? "/index.html" : request.path;
    // The path arrives decoded: a NUL or a ".." segment can only be an attempt to leave the folder.
    if (relative.find('\0') != std::string::npos || relative.find("/../") != std::string::npos ||
        (relative.size() >= 3 && relative.compare(relative.size() - 3, 3, "/..") == 0))
        return not_found(response);
    char resolved[PATH_MAX];
    if (!realpath((root + relative).c_str(), resolved))
        return not_found(response);
    std::string path = resolved;
    struct stat info {};
    // Symbolic links are resolved first, so a link inside the folder that leads out is refused too.
    if (path.compare(0, root.size() + 1, root + "/") != 0 || stat(path.c_str(), &info) != 0 ||
        !S_ISREG(info.st_mode) || static_cast<size_t>(info.st_size) > kMaxStaticFile)
        return not_found(response);
    std::ifstream file(path, std::ios::binary);
    std::ostringstream content;
    content << file.rdbuf();
    if (!file)
        return not_found(response);
    response.set_content(content.str(), media_type_of(path));
}

} // namespace console
