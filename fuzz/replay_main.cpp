// SPDX-License-Identifier: MIT
// Replays fuzz inputs without libFuzzer: main() hands every file named on the command line, and
// every regular file inside a folder named there, to LLVMFuzzerTestOneInput, once each. A crash,
// a sanitizer report or a failed check in the target fails the run as it would fail the fuzzer.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

#include "json_text.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);
extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv);

namespace {

// The files of `argument` in name order (a folder), or the file itself; false when it is neither.
bool collect(const std::filesystem::path &argument, std::vector<std::filesystem::path> *files)
{
    std::error_code error;
    if (std::filesystem::is_regular_file(argument, error)) {
        files->push_back(argument);
        return true;
    }
    if (!std::filesystem::is_directory(argument, error))
        return false;
    std::vector<std::filesystem::path> found;
    for (const auto &entry : std::filesystem::directory_iterator(argument, error))
        if (entry.is_regular_file(error))
            found.push_back(entry.path());
    std::sort(found.begin(), found.end());
    files->insert(files->end(), found.begin(), found.end());
    return true;
}

} // namespace

int main(int argc, char **argv)
{
    LLVMFuzzerInitialize(&argc, &argv);
    std::vector<std::filesystem::path> files;
    for (int i = 1; i < argc; ++i) {
        if (!collect(argv[i], &files)) {
            std::fprintf(stderr, "replay: %s: no such file or folder\n", argv[i]);
            return 2;
        }
    }
    if (files.empty()) {
        std::fprintf(stderr, "replay: no inputs\n");
        return 2;
    }
    for (const auto &file : files) {
        std::string bytes = vask_test::read_file(file.string());
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size());
    }
    std::printf("replayed %zu inputs\n", files.size());
    return 0;
}
