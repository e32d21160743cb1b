// SPDX-License-Identifier: MIT
// The piecewise reading of the box's small system files.
#include "rs232/file_pieces.h"

#include <cerrno>
#include <string>

#include "core/internal.h"
#include "core/sysroot.h"

namespace vask_ed {

bool read_file_pieces(const char *fixed_path, const char *function, int line,
                      const std::function<bool(char *piece)> &piece)
{
    std::string path = system_path(fixed_path);
    file_ptr file(fopen(path.c_str(), "rbe"));
    if (!file) {
        int error = errno;
        TULO_LOG_write_newline(ED_LOG_MODULE, 0, kLogUtils, line, function, "file open %s error %d", path.c_str(),
                               error);
        return false;
    }
    char buffer[kPieceMax + 1];
    while (fgets(buffer, sizeof buffer, file.get()) != nullptr)
        if (piece(buffer))
            break;
    return true;
}

} // namespace vask_ed
