// SPDX-License-Identifier: MIT
// Editing strings and taking paths, file names and file URIs apart.
#include <glib.h>

#include "core/internal.h"

namespace vask_ed {
namespace {

// Frees a string allocated by GLib.
struct glib_string_deleter {
    void operator()(char *text) const { g_free(text); }
};
using glib_string = std::unique_ptr<char, glib_string_deleter>;

// The index of the last '.' at index 1 or later, or 0 when there is none: index 0 is never
// examined, which gives file names without an extension their documented fallback.
size_t extension_dot(const std::string &path)
{
    for (size_t i = path.size(); i-- > 1;)
        if (path[i] == '.')
            return i;
    return 0;
}

} // namespace
} // namespace vask_ed

using namespace vask_ed;

ED_API int ReplaceString(std::string *str, const std::string &from, const std::string &to)
{
    if (str == nullptr)
        return -1;
    if (from.empty())
        return 0;
    for (size_t at = str->find(from); at != std::string::npos; at = str->find(from, at + to.size()))
        str->replace(at, from.size(), to);
    return 0;
}

ED_API int MatchString(const std::string &pattern, const std::string &str)
{
    // The engine works on UTF-8; other bytes would make its result undefined on older GLib.
    if (!g_utf8_validate(pattern.c_str(), -1, nullptr) || !g_utf8_validate(str.c_str(), -1, nullptr))
        return -1;
    GRegex *regex = g_regex_new(pattern.c_str(), static_cast<GRegexCompileFlags>(0),
                                static_cast<GRegexMatchFlags>(0), nullptr);
    if (regex == nullptr)
        return -1;
    bool matched = g_regex_match(regex, str.c_str(), static_cast<GRegexMatchFlags>(0), nullptr);
    g_regex_unref(regex);
    return matched ? 0 : -1;
}

ED_API void EraseSubStr(std::string &str, const std::string &sub)
{
    size_t at = str.find(sub);
    if (at != std::string::npos)
        str.erase(at, sub.size());
}

ED_API std::string ConcateFilePath(const std::string &dir, std::string name)
{
    if (!dir.empty() && dir.back() == '/')
        return dir + name;
    return dir + "/" + name;
}

ED_API std::string AppendFileUri(const std::string &uri, const std::string &text)
{
    if (uri.empty())
        return text;
    size_t cut = 1;
    for (size_t i = uri.size(); i-- > 1;) {
        if (uri[i] == '/') {
            cut = i + 1;
            break;
        }
    }
    return uri.substr(0, cut) + text + uri.substr(cut);
}

ED_API int GetFilepathFromUri(const std::string &uri, std::string *path)
{
    if (path == nullptr)
        return -1;
    glib_string scheme(g_uri_parse_scheme(uri.c_str()));
    static const size_t kFilePrefix = sizeof "file://" - 1;
    if (scheme && std::string(scheme.get()) == "file")
        *path = uri.size() > kFilePrefix ? uri.substr(kFilePrefix) : std::string();
    else
        *path = uri;
    return 0;
}

ED_API std::string GetFileExt(const std::string &path)
{
    if (path.size() < 2)
        return std::string();
    return path.substr(extension_dot(path) + 1);
}

ED_API std::string ReplaceFileExt(const std::string &path, const std::string &ext)
{
    if (path.empty())
        return std::string();
    return path.substr(0, extension_dot(path) + 1) + ext;
}

ED_API int RemoveTrailingChar(char c, std::string *str)
{
    if (str == nullptr)
        return -1;
    while (!str->empty() && str->back() == c)
        str->pop_back();
    return 0;
}
