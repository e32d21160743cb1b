// SPDX-License-Identifier: MIT
// Hostile signal payloads: each event's parser followed by its releaser, taken from the library's
// own signal tables, and the whole path of ed_signal_handler from a raw payload to an application
// callback, with parsing on and off.
#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "core/signals.h"
#include "fuzz_input.h"
#include "libvask_external_device.h"

namespace {

// The full topics of the service's signals, in a fixed order so that a selector byte always means
// the same event.
std::vector<std::string> g_topics;

bool g_parsing = true;
size_t g_delivered = 0;
volatile size_t g_payload_length = 0;

void on_signal(const char *event, void *data, void *)
{
    ++g_delivered;
    if (event == nullptr || data == nullptr)
        abort(); // a signal is only delivered with its event name and its record or payload
    if (!g_parsing)
        g_payload_length = strlen(static_cast<const char *>(data));
}

// The event's parser and releaser on `payload`; whether it made a record.
bool parse_and_release(const std::string &topic, const char *payload)
{
    void *record = vask_ed::signal_parsers().at(topic)(payload);
    vask_ed::signal_releasers().at(topic)(record);
    return record != nullptr;
}

} // namespace

void vask_fuzz::prepare()
{
    for (const auto &entry : vask_ed::signal_parsers())
        g_topics.push_back(entry.first);
    std::sort(g_topics.begin(), g_topics.end());
    // Without ed_init there is no bus client: registering only fills the callback table.
    for (const std::string &topic : g_topics)
        if (ed_register_signal(topic.c_str() + vask_ed::kSignalPrefix.size(), on_signal) != 0)
            abort();
}

// Selector: the event (modulo the number of events), then the way (0 parser and releaser, 1 the
// handler with parsing on, 2 the handler with parsing off).
void vask_fuzz::run(const vask_fuzz::input &in)
{
    const std::string &topic = g_topics[in.selector % g_topics.size()];
    const unsigned way = in.selector / g_topics.size() % 3;
    const char *payload = in.text.c_str();
    if (way == 0) {
        parse_and_release(topic, payload);
        return;
    }
    g_parsing = way == 1;
    ed_set_opt(ED_OPT_SIGNAL_PARSE, g_parsing ? 1 : 0);
    const size_t before = g_delivered;
    ed_signal_handler(nullptr, nullptr, topic.c_str(), payload, static_cast<int>(in.text.size()));
    // Unparsed payloads always reach the callback; parsed ones exactly when the event's parser makes
    // a record of them.
    const bool expected = !g_parsing || parse_and_release(topic, payload);
    if (g_delivered != before + (expected ? 1 : 0))
        abort();
}
