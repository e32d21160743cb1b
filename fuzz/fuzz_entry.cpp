// SPDX-License-Identifier: MIT
// libFuzzer's entry points, the same for every target: a quiet log, the target's preparation, then
// each input split into its selector byte and its text.
#include <cstddef>
#include <cstdint>

#include "fuzz_input.h"
#include "tulo_log.h"

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    // Every log line is dropped before it is formatted: the readers log on every error path and
    // stderr would cost more than the parsing.
    TULO_LOG_set_level(-1);
    vask_fuzz::prepare();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    vask_fuzz::input in;
    if (size > 0) {
        in.selector = data[0];
        in.text.assign(reinterpret_cast<const char *>(data) + 1, size - 1);
    }
    vask_fuzz::run(in);
    return 0;
}
