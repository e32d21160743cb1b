// SPDX-License-Identifier: MIT
// Subscription to the service's signals and their dispatch to the application's callbacks.
#include "core/signals.h"

#include <cstring>
#include <stdexcept>

#include "core/internal.h"

namespace vask_ed {

const std::string kSignalPrefix = "external_device/signal/";

namespace {

struct signal_entry {
    const char *event;
    signal_parser parser;
    signal_releaser releaser;
};

const signal_entry kSignals[] = {
    {"mic_on_event", sig_mic_on_parser, sig_mic_on_releaser},
    {"voting_results_event", sig_voting_results_parser, sig_voting_results_releaser},
    {"info_data_change_event", sig_info_data_change_parser, sig_info_data_change_releaser},
    {"cam_status_event", sig_cam_status_parser, sig_cam_status_releaser},
    {"non_list_mic_event", sig_non_list_mic_parser, sig_non_list_mic_releaser},
};

callback_table make_callbacks()
{
    callback_table table;
    for (const signal_entry &entry : kSignals)
        table.emplace(std::piecewise_construct, std::forward_as_tuple(kSignalPrefix + entry.event),
                      std::forward_as_tuple(nullptr));
    return table;
}

parser_table make_parsers()
{
    parser_table table;
    for (const signal_entry &entry : kSignals)
        table.emplace(kSignalPrefix + entry.event, entry.parser);
    return table;
}

releaser_table make_releasers()
{
    releaser_table table;
    for (const signal_entry &entry : kSignals)
        table.emplace(kSignalPrefix + entry.event, entry.releaser);
    return table;
}

// Built at load time, before any bus delivery can read them.
callback_table g_callbacks = make_callbacks();
const parser_table g_parsers = make_parsers();
const releaser_table g_releasers = make_releasers();

} // namespace

const callback_table &signal_callbacks()
{
    return g_callbacks;
}

const parser_table &signal_parsers()
{
    return g_parsers;
}

const releaser_table &signal_releasers()
{
    return g_releasers;
}

void dispatch_signal(const callback_table &callbacks, const parser_table &parsers,
                     const releaser_table &releasers, void *user, const char *topic,
                     const void *payload)
{
    if (topic == nullptr)
        return;
    const std::string key(topic);
    auto slot = callbacks.find(key);
    if (slot == callbacks.end())
        return;

    void *record = nullptr;
    if (option_value(ED_OPT_SIGNAL_PARSE) != 0) {
        try {
            record = parsers.at(key)(static_cast<const char *>(payload));
        } catch (const std::out_of_range &) {
            TULO_LOG_write_newline(ED_LOG_MODULE, 0, kLogLibrary, 1448, "ed_signal_handler",
                                   "not supported topic\n");
            return;
        }
    }

    signal_callback callback = slot->second.load(std::memory_order_acquire);
    const char *found = strstr(topic, kSignalPrefix.c_str());
    const char *event = found != nullptr ? found + kSignalPrefix.size() : nullptr;

    // Read a second time, as applications expect: a change made meanwhile decides the hand-over.
    if (option_value(ED_OPT_SIGNAL_PARSE) == 0) {
        if (callback != nullptr)
            callback(event, const_cast<void *>(payload), user);
        return;
    }
    if (record != nullptr && callback != nullptr) {
        try {
            callback(event, record, user);
        } catch (...) {
            // The exception is the application's to see; the record still must not leak.
            auto releaser = releasers.find(key);
            if (releaser != releasers.end())
                releaser->second(record);
            throw;
        }
    }
    try {
        releasers.at(key)(record);
    } catch (const std::out_of_range &) {
        return;
    }
}

void subscribe_registered_signals(bus_client *client)
{
    for (const signal_entry &entry : kSignals)
        if (g_callbacks.at(kSignalPrefix + entry.event).load(std::memory_order_acquire) != nullptr)
            bus_signal_subscribe(client, kServiceName, entry.event, ed_signal_handler);
}

} // namespace vask_ed

using namespace vask_ed;

ED_API int ed_register_signal(const char *event,
                              void (*callback)(const char *event, void *data, void *user))
{
    if (event == nullptr)
        return -3;
    auto slot = g_callbacks.find(kSignalPrefix + event);
    if (slot == g_callbacks.end())
        return -3;
    slot->second.store(callback, std::memory_order_release);
    // Kept: the bus result is not reported; applications take 0 to mean "the event is known".
    bus_signal_subscribe(current_client(), kServiceName, event, ed_signal_handler);
    return 0;
}

ED_API int ed_unregister_signal(const char *event)
{
    if (event == nullptr)
        return -3;
    auto slot = g_callbacks.find(kSignalPrefix + event);
    if (slot == g_callbacks.end())
        return -3;
    bus_signal_unsubscribe(current_client(), kServiceName, event);
    slot->second.store(nullptr, std::memory_order_release);
    return 0;
}

ED_API void ed_signal_handler(bus_client *, void *user, const char *topic, const void *payload, int)
{
    dispatch_signal(g_callbacks, g_parsers, g_releasers, user, topic, payload);
}
