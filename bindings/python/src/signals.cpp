// SPDX-License-Identifier: MIT
// Signals: the library calls one C callback per event on the bus library's dispatch thread; the
// module keeps its own table of Python listeners per event and hands each signal to them.
//
// The library's own parsing (ED_OPT_SIGNAL_PARSE) is kept off and the module calls the library's
// exported parser and releaser itself: the library reads the option once per signal and the
// callback cannot know which value it read, so a switch while signals flow would hand a record
// where text is expected. With the choice made here, in one place, a switch takes effect on the
// next signal and never mixes the two.
#include "binding.h"
#include "records.h"

#include <array>
#include <atomic>
#include <cstring>
#include <memory>
#include <string>

namespace vask_py {
namespace {

template <class R> py::object convert(const void *record) { return to_python(*static_cast<const R *>(record)); }

struct event_entry {
    const char *name;
    void *(*parse)(const char *payload);
    void (*release)(void *record);
    py::object (*convert)(const void *record);
};

// The five events of the service, with the library's parser and releaser of each.
const std::array<event_entry, 5> kEvents = {{
    {"mic_on_event", sig_mic_on_parser, sig_mic_on_releaser, convert<sig_mic_on_data>},
    {"voting_results_event", sig_voting_results_parser, sig_voting_results_releaser,
     convert<sig_voting_results_data>},
    {"info_data_change_event", sig_info_data_change_parser, sig_info_data_change_releaser,
     convert<sig_info_data_change_data>},
    {"cam_status_event", sig_cam_status_parser, sig_cam_status_releaser, convert<sig_cam_status_data>},
    {"non_list_mic_event", sig_non_list_mic_parser, sig_non_list_mic_releaser, convert<sig_mic_on_data>},
}};

// Listeners per event: Python lists, read and changed with the GIL held. `wanted` mirrors "the
// list is not empty" so that a signal nobody listens to is dropped without taking the GIL.
std::array<py::handle, kEvents.size()> listeners;
std::array<std::atomic<bool>, kEvents.size()> wanted;
std::atomic<bool> parse_signals{true};
thread_local bool in_signal_callback = false;

int find_event(const char *event)
{
    for (size_t i = 0; event != nullptr && i < kEvents.size(); ++i)
        if (std::strcmp(kEvents[i].name, event) == 0)
            return static_cast<int>(i);
    return -1;
}

int event_index(const std::string &event, const char *operation)
{
    int index = find_event(event.c_str());
    if (index < 0)
        check(operation, -3);
    return index;
}

bool interpreter_running()
{
#if PY_VERSION_HEX >= 0x030D0000
    return Py_IsInitialized() && !Py_IsFinalizing();
#else
    return Py_IsInitialized() && !_Py_IsFinalizing();
#endif
}

py::object record_of(const event_entry &entry, const char *payload)
{
    if (!parse_signals.load())
        return to_python_text(payload);
    std::unique_ptr<void, void (*)(void *)> record(entry.parse(payload), entry.release);
    if (!record)
        return py::none(); // not JSON, or a required key missing: the signal does not reach Python
    return entry.convert(record.get());
}

void deliver(int index, const char *event, const char *payload)
{
    py::object record = record_of(kEvents[index], payload);
    if (record.is_none())
        return;
    py::str name(event);
    // A copy: a listener may subscribe or unsubscribe while the others are being called.
    py::tuple current(py::reinterpret_borrow<py::list>(listeners[index]));
    for (py::handle listener : current) {
        try {
            listener(name, record);
        } catch (py::error_already_set &error) {
            // Reported through sys.unraisablehook; the dispatch thread and the other listeners go on.
            error.discard_as_unraisable(py::reinterpret_borrow<py::object>(listener));
        }
    }
}

// The dispatch thread's Python thread state, made on its first signal and kept until the thread
// ends (ed_release), instead of one made and destroyed for every signal. It is registered the
// PyGILState way, so that code a callback calls may itself take the GIL with PyGILState_Ensure.
class dispatch_thread_state {
public:
    void keep()
    {
        if (saved_ != nullptr)
            return;
        PyGILState_Ensure();
        saved_ = PyEval_SaveThread();
    }

    ~dispatch_thread_state()
    {
        // An interpreter already going away is left alone: its thread states go with it.
        if (saved_ == nullptr || !interpreter_running())
            return;
        PyEval_RestoreThread(saved_);
        PyGILState_Release(PyGILState_UNLOCKED);
    }

private:
    PyThreadState *saved_ = nullptr;
};

thread_local dispatch_thread_state dispatch_state;

// The callback handed to ed_register_signal, on the bus library's dispatch thread.
void on_signal(const char *event, void *data, void * /*user*/)
{
    int index = find_event(event);
    if (index < 0 || !wanted[index].load() || data == nullptr || !interpreter_running())
        return;
    dispatch_state.keep();
    py::gil_scoped_acquire gil;
    in_signal_callback = true;
    try {
        deliver(index, event, static_cast<const char *>(data));
    } catch (py::error_already_set &error) {
        error.discard_as_unraisable(event);
    } catch (std::exception &error) {
        PyErr_SetString(PyExc_RuntimeError, error.what());
        PyErr_WriteUnraisable(py::str(event).ptr());
    }
    in_signal_callback = false;
}

void listen(const std::string &event, py::object listener)
{
    int index = event_index(event, "subscribe");
    auto list = py::reinterpret_borrow<py::list>(listeners[index]);
    list.append(listener);
    wanted[index] = true;
}

void unlisten(const std::string &event, py::object listener)
{
    int index = event_index(event, "unsubscribe");
    auto list = py::reinterpret_borrow<py::list>(listeners[index]);
    for (size_t i = 0; i < list.size(); ++i) {
        if (list[i].ptr() == listener.ptr()) {
            PySequence_DelItem(list.ptr(), static_cast<Py_ssize_t>(i));
            break;
        }
    }
    wanted[index] = list.size() > 0;
}

void refuse_in_callback(const char *what)
{
    if (in_signal_callback)
        throw py::value_error(std::string(what) + " cannot run inside a signal callback: it would wait for that callback");
}

// ed_init, then the five events registered with on_signal. The events are registered once per
// opening, so that subscribing and unsubscribing (also inside a callback) only edit the
// listener table.
void open_library()
{
    refuse_in_callback("open");
    check("init", without_gil([] { return ed_init(); }));
    for (const auto &entry : kEvents)
        without_gil([&] { return ed_register_signal(entry.name, on_signal); });
}

// The events unregistered (each waits for its running callback: the GIL is released meanwhile),
// then ed_release.
void close_library()
{
    refuse_in_callback("close");
    for (const auto &entry : kEvents)
        without_gil([&] { return ed_unregister_signal(entry.name); });
    check("release", without_gil([] { return ed_release(); }));
}

void set_opt(int option, int value)
{
    if (option == ED_OPT_SIGNAL_PARSE) {
        parse_signals = value != 0;
        return;
    }
    check("set_opt", ed_set_opt(option, value));
}

} // namespace

void define_signals(py::module_ &m)
{
    for (size_t i = 0; i < kEvents.size(); ++i) {
        listeners[i] = py::list().release(); // kept for the life of the process
        wanted[i] = false;
    }
    ed_set_opt(ED_OPT_SIGNAL_PARSE, 0);
    py::tuple names(kEvents.size());
    for (size_t i = 0; i < kEvents.size(); ++i)
        names[i] = kEvents[i].name;
    m.attr("EVENTS") = names;
    m.def("_listen", listen, "Adds listener(event, record) for `event`.");
    m.def("_unlisten", unlisten, "Removes one listener of `event` (compared by identity).");
    m.def("_open", open_library, "ed_init, then every event registered with the module's callback.");
    m.def("_close", close_library, "Every event unregistered, then ed_release.");
    m.def("_refuse_in_callback", refuse_in_callback,
          "Raises ValueError on the bus library's dispatch thread while a signal is handed over.");
    m.def("set_opt", set_opt,
          "Sets a library option. OPT_SIGNAL_PARSE (0): non-zero (the default) hands each signal to\n"
          "Python as its record, 0 as the raw JSON text; it takes effect on the next signal. Other\n"
          "option ids are passed to ed_set_opt unchanged.",
          py::arg("option"), py::arg("value"));
    m.attr("OPT_SIGNAL_PARSE") = static_cast<int>(ED_OPT_SIGNAL_PARSE);
}

} // namespace vask_py
