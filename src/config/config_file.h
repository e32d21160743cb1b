// The box's configuration file as a whole: its factory default and how it is restored.
#ifndef VASK_ED_CONFIG_CONFIG_FILE_H
#define VASK_ED_CONFIG_CONFIG_FILE_H

#include <string>

namespace vask_ed {

// The shell command that copies the factory default over the writable configuration file. Under a
// system root both paths are quoted for the shell; without one it is the box's own command.
std::string default_restore_command();

} // namespace vask_ed

#endif
