// SPDX-License-Identifier: MIT
// Replacing the whole text of a configuration file without ever leaving half of it behind.
#ifndef VASK_ED_CONFIG_REPLACE_FILE_H
#define VASK_ED_CONFIG_REPLACE_FILE_H

#include <cstddef>
#include <string>

namespace vask_ed {

// Makes `text` the content of the file at `path`. Symbolic links are followed to the file they
// name (the links stay links, also when that file does not exist yet). The text goes to a new
// file in the folder of that file, is flushed to the disk, takes the old file's mode and owner and
// is renamed over it, so that a reader or a power cut sees the old text or the new one. Where no
// such file can be made (read-only folder, no permission, owner that cannot be given), the file is
// rewritten in place: its room is reserved first, so that a full disk leaves it as it was.
// An existing file that this process may not write is not replaced.
// Returns 0, or -1 with errno set; on -1 the old file is as it was and no temporary file is left.
int replace_file_text(const std::string &path, const char *text, size_t length);

// The path the symbolic links of `path` lead to (the file replace_file_text writes); the last one
// need not exist.
std::string resolve_file_links(const std::string &path);

// Removes the temporary files that replace_file_text left beside `target` (a resolved path) in
// processes that no longer run: a writer killed between creating its file and renaming it. Only
// for a caller that holds the configuration file lock exclusively, so that no live writer of
// another process is working on one; the files of live processes are kept in any case.
void remove_stale_temp_files(const std::string &target);

} // namespace vask_ed

#endif
