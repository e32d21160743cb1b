// SPDX-License-Identifier: MIT
// The fixed paths of the box, under VASK_SYSROOT when it is set.
#ifndef VASK_ED_CORE_SYSROOT_H
#define VASK_ED_CORE_SYSROOT_H

#include <string>

namespace vask_ed {

// `fixed_path` (an absolute path such as "/etc/external_device.json") prefixed with the value of
// VASK_SYSROOT when that variable is set and not empty; read at each call. Paths that callers pass
// in are never given to this function.
std::string system_path(const char *fixed_path);

} // namespace vask_ed

#endif
