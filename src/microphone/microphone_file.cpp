// SPDX-License-Identifier: MIT
// The configuration cycle of the microphone control file.
#include "microphone/microphone_store.h"

namespace vask_ed {

config_call microphone_call(const char *function, int line, const char *open_failed)
{
    config_call call(function, line);
    call.fixed_path = kMicrophoneConfig;
    call.open_failed = open_failed;
    return call;
}

void log_trace(const config_call &call, const char *message)
{
    TULO_LOG_write_newline(ED_LOG_MODULE, 2, call.source, call.line, call.function, "%s", message);
}

} // namespace vask_ed
