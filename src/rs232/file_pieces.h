// SPDX-License-Identifier: MIT
// The owner of malloc'd text and the piecewise reading of the box's small system files, shared by
// serial-device discovery and the remote controller.
#ifndef VASK_ED_RS232_FILE_PIECES_H
#define VASK_ED_RS232_FILE_PIECES_H

#include <cstdlib>
#include <functional>
#include <memory>

namespace vask_ed {

struct malloc_deleter {
    void operator()(void *memory) const { free(memory); }
};
// Memory from malloc (getline's line buffer, realpath's result).
using malloc_text = std::unique_ptr<char, malloc_deleter>;

// The longest piece read_file_pieces hands on: what fgets gives into a 128-byte buffer.
constexpr int kPieceMax = 127;

// Opens the fixed file `fixed_path` (under VASK_SYSROOT when set) in mode "rb" and hands it on in
// pieces of at most kPieceMax bytes, each ending at a newline (kept) or where the limit cut it, to
// `piece`, until the end of the file or until `piece` returns true. When the file cannot be opened
// logs at level 0 "file open <path> error <errno>" (source "utils", `function` and `line`) and
// returns false; true otherwise.
bool read_file_pieces(const char *fixed_path, const char *function, int line,
                      const std::function<bool(char *piece)> &piece);

} // namespace vask_ed

#endif
