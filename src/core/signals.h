// SPDX-License-Identifier: MIT
// The signal tables and the dispatcher behind ed_signal_handler.
#ifndef VASK_ED_CORE_SIGNALS_H
#define VASK_ED_CORE_SIGNALS_H

#include <atomic>
#include <string>
#include <unordered_map>

#include "vask_bus.h"

namespace vask_ed {

using signal_callback = void (*)(const char *event, void *data, void *user);
using signal_parser = void *(*)(const char *payload);
using signal_releaser = void (*)(void *record);

// Keyed by full topic. The callback values are atomic because the application stores them while
// the bus library's dispatch thread reads them; the key sets never change after construction.
using callback_table = std::unordered_map<std::string, std::atomic<signal_callback>>;
using parser_table = std::unordered_map<std::string, signal_parser>;
using releaser_table = std::unordered_map<std::string, signal_releaser>;

// "external_device/signal/": a full topic is this followed by an event name.
extern const std::string kSignalPrefix;

// The process-wide tables, with exactly one key per signal of the service.
const callback_table &signal_callbacks();
const parser_table &signal_parsers();
const releaser_table &signal_releasers();

// Delivers one signal through the given tables: parse (unless ED_OPT_SIGNAL_PARSE is 0), call the
// topic's callback, release. ed_signal_handler is this function on the process-wide tables.
void dispatch_signal(const callback_table &callbacks, const parser_table &parsers,
                     const releaser_table &releasers, void *user, const char *topic,
                     const void *payload);

// Subscribes `client` to every event that has a non-null callback stored, as ed_register_signal
// does, so that the callbacks of an application survive ed_release and a new ed_init.
void subscribe_registered_signals(bus_client *client);

} // namespace vask_ed

#endif
