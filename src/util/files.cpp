// SPDX-License-Identifier: MIT
// Testing, removing and renaming files, and creating the directory of a file.
#include <cerrno>
#include <cstdio>
#include <glib.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "core/internal.h"

using namespace vask_ed;

ED_API bool IsFile(const std::string &path)
{
    std::string plain = path;
    ReplaceString(&plain, "file://", "");
    return access(plain.c_str(), F_OK) == 0;
}

ED_API bool IsDir(const std::string &path)
{
    struct stat info;
    return stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

ED_API int Remove(const std::string &path)
{
    struct stat info;
    if (stat(path.c_str(), &info) != 0)
        return 0;
    int result = remove(path.c_str());
    if (result < 0)
        TULO_LOG_write_newline(ED_LOG_MODULE, 1, kLogUtils, __LINE__, "Remove", "Failed to remove %s (%d)",
                               path.c_str(), result);
    return result;
}

ED_API int Rename(const std::string &from, const std::string &to)
{
    int result = rename(from.c_str(), to.c_str());
    if (result != 0)
        TULO_LOG_write_newline(ED_LOG_MODULE, 0, kLogUtils, __LINE__, "Rename",
                               "Rename file %s to %s failed. errno=%d", from.c_str(), to.c_str(), errno);
    return result;
}

ED_API int64_t FileSize(const std::string &path)
{
    struct stat info;
    if (lstat(path.c_str(), &info) != 0)
        return -1;
    return static_cast<int64_t>(info.st_size);
}

ED_API int MakeDirByFilePath(const std::string &file_path, unsigned int mode, int depth)
{
    char *dirname = g_path_get_dirname(file_path.c_str());
    std::string dir = dirname;
    g_free(dirname);
    int permissions = static_cast<int>(mode);
    if (depth < 1)
        return g_mkdir_with_parents(dir.c_str(), permissions);

    std::vector<size_t> slashes;
    for (size_t i = 0; i < dir.size(); ++i)
        if (dir[i] == '/')
            slashes.push_back(i);
    if (slashes.size() < static_cast<size_t>(depth))
        return -1;
    // Nothing is created unless the anchor exists: an unmounted medium leaves its mount point
    // empty, and directories made there would land on the box's own storage.
    std::string anchor = slashes.size() == static_cast<size_t>(depth) ? dir : dir.substr(0, slashes[depth]);
    if (!IsDir(anchor))
        return -1;
    return g_mkdir_with_parents(dir.c_str(), permissions);
}

ED_API int MakeDirByFileUri(const std::string &uri, unsigned int mode, int depth)
{
    std::string path;
    GetFilepathFromUri(uri, &path);
    return MakeDirByFilePath(path, mode, depth);
}
