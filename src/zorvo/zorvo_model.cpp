// SPDX-License-Identifier: MIT
// The box model from the operating-system release file, and the model table of the remote
// controller's macro sets.
#include "zorvo/zorvo_model.h"

#include <cstring>
#include <exception>
#include <unordered_map>

#include "core/internal.h"
#include "rs232/file_pieces.h"

namespace vask_ed {
namespace {

constexpr zorvo_size kDefaultSize = {4, 3};
constexpr size_t kModelNameMax = 36;

// Built when the library is loaded and never changed.
const std::unordered_map<std::string, zorvo_size> kModelSizes = {
    {"RV710", {2, 3}},
    {"RV720", {4, 3}},
    {"RV730", {4, 9}},
};

// The value after the first "ID=" of a line, or false. Kept: VERSION_ID= holds "ID=" too, so
// whichever comes first in the file wins, and quotes around the value stay.
bool model_in_piece(char *piece, std::string *model)
{
    char *newline = strchr(piece, '\n');
    if (newline != nullptr)
        *newline = '\0';
    const char *key = strstr(piece, "ID=");
    if (key == nullptr)
        return false;
    const char *value = key + strlen("ID=");
    model->assign(value, strnlen(value, kModelNameMax));
    return true;
}

} // namespace

zorvo_size zorvo_size_of(const std::string &model)
{
    auto found = kModelSizes.find(model);
    return found != kModelSizes.end() ? found->second : kDefaultSize;
}

zorvo_size current_zorvo_size()
{
    return zorvo_size_of(GetFirmwareModelName());
}

} // namespace vask_ed

using namespace vask_ed;

ED_API std::string GetFirmwareModelName()
{
    try {
        std::string model;
        read_file_pieces("/etc/os-release", "GetFirmwareModelName", __LINE__,
                         [&model](char *piece) { return model_in_piece(piece, &model); });
        return model;
    } catch (const std::exception &) {
        return std::string();
    }
}
