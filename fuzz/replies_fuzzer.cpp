// SPDX-License-Identifier: MIT
// Hostile service replies: the fuzzed bytes are the reply text that the bus library hands back to a
// getter. They go through the same two steps as in a real call: the folding of the reply's "code"
// into the library's result, then the getter's own reader when the result is 0.
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "core/method_call.h"
#include "fuzz_input.h"
#include "service/service_replies.h"
#include "vask_bus.h"

namespace {

// One reader per getter; the last one stands for the calls that ask for no reply document.
enum reply_reader {
    kConnectionState,
    kMicOnList,
    kRs232DeviceList,
    kImshareInfo,
    kVotingResults,
    kNoDocument,
    kReaderCount
};

// The library's results of a call.
bool known_result(int result)
{
    return result <= 0 && result >= -4;
}

} // namespace

void vask_fuzz::prepare() {}

void vask_fuzz::run(const vask_fuzz::input &in)
{
    // The reply as the bus library leaves it in the caller's buffer: at most BUS_REPLY_MAX - 1 bytes
    // and a terminating zero.
    std::vector<char> buffer(BUS_REPLY_MAX, '\0');
    size_t length = in.text.size() < BUS_REPLY_MAX - 1 ? in.text.size() : BUS_REPLY_MAX - 1;
    memcpy(buffer.data(), in.text.data(), length);
    const int reply_length = static_cast<int>(length);

    const unsigned reader = in.selector % kReaderCount;
    if (reader == kNoDocument) {
        if (!known_result(vask_ed::fold_reply(BUS_OK, buffer.data(), reply_length, nullptr)))
            abort();
        return;
    }
    cJSON *reply = nullptr;
    int result = vask_ed::fold_reply(BUS_OK, buffer.data(), reply_length, &reply);
    if (!known_result(result))
        abort();
    switch (reader) {
    case kConnectionState: {
        int state = 0;
        vask_ed::read_reply(result, reply, [&state](const cJSON *r) { vask_ed::read_connection_state(r, &state); });
        break;
    }
    case kMicOnList: {
        std::vector<mic_node> list;
        vask_ed::read_reply(result, reply, [&list](const cJSON *r) { vask_ed::read_mic_on_list(r, &list); });
        break;
    }
    case kRs232DeviceList: {
        std::vector<external_rs232_info> list;
        vask_ed::read_reply(result, reply, [&list](const cJSON *r) { vask_ed::read_rs232_device_list(r, &list); });
        break;
    }
    case kImshareInfo: {
        imshare_info info{};
        vask_ed::read_reply(result, reply, [&info](const cJSON *r) { vask_ed::read_imshare_info(r, &info); });
        break;
    }
    default: {
        ed_voting_info info{};
        vask_ed::read_reply(result, reply, [&info](const cJSON *r) { vask_ed::read_voting_results(r, &info); });
        break;
    }
    }
}
