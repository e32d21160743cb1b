// SPDX-License-Identifier: MIT
// The box model and the size of the remote controller's macro set that goes with it.
#ifndef VASK_ED_ZORVO_ZORVO_MODEL_H
#define VASK_ED_ZORVO_ZORVO_MODEL_H

#include <string>

namespace vask_ed {

// How many macros the remote controller keeps on a box model, and how many channels each has.
struct zorvo_size {
    int channels;
    int macros;
};

// The size for model `model` (exact, case-sensitive name); 4 channels and 3 macros for any other
// name, the empty one included.
zorvo_size zorvo_size_of(const std::string &model);

// The size for the model of this box, as GetFirmwareModelName reads it.
zorvo_size current_zorvo_size();

} // namespace vask_ed

#endif
