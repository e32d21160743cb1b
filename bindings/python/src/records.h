// SPDX-License-Identifier: MIT
// The library's records as Python objects and back.
//
// Each record has one table, record_fields<R>, that names its members in the order of the Python
// class (vask_external_device._records). One pair of templates walks any table: to_python builds
// the Python record with keyword arguments, from_python reads the attributes of any object that
// has them. Strings cross as str, decoded and encoded with "surrogateescape": a byte that is not
// UTF-8 (a file may hold one) reaches Python and comes back unchanged.
#ifndef VASK_PY_RECORDS_H
#define VASK_PY_RECORDS_H

#include <pybind11/pybind11.h>

#include <cstdint>
#include <string>
#include <tuple>
#include <type_traits>
#include <vector>

#include "libvask_external_device.h"

namespace vask_py {

namespace py = pybind11;

template <class R, class T> struct field {
    const char *name;
    T R::*member;
};

template <class R, class T> constexpr field<R, T> member(const char *name, T R::*m) { return {name, m}; }

// Specialised below: `name` is the Python class, fields() the members.
template <class R> struct record_fields;

// The Python class of record `name` (imported once, kept for the life of the process).
py::handle record_class(const char *name);

py::str to_python_text(const std::string &text);
std::string text_from_python(py::handle value);

template <class R> py::object to_python(const R &record);
template <class R> R from_python(py::handle object);

namespace detail {

template <class T> struct is_vector : std::false_type {};
template <class T> struct is_vector<std::vector<T>> : std::true_type {};

template <class T> py::object value_to_python(const T &value)
{
    if constexpr (std::is_same_v<T, std::string>)
        return to_python_text(value);
    else if constexpr (std::is_same_v<T, bool>)
        return py::bool_(value);
    else if constexpr (std::is_integral_v<T>)
        return py::int_(value);
    else if constexpr (is_vector<T>::value) {
        py::list items;
        for (const auto &item : value)
            items.append(to_python(item));
        return std::move(items);
    } else
        return to_python(value);
}

template <class T> T value_from_python(py::handle value)
{
    if constexpr (std::is_same_v<T, std::string>)
        return text_from_python(value);
    else if constexpr (std::is_same_v<T, bool>) {
        if (!PyBool_Check(value.ptr()))
            throw py::type_error("expected a bool, got " + std::string(py::str(py::type::handle_of(value))));
        return value.ptr() == Py_True;
    } else if constexpr (std::is_integral_v<T>)
        return value.cast<T>();
    else if constexpr (is_vector<T>::value) {
        T items;
        for (py::handle item : py::iter(value))
            items.push_back(from_python<typename T::value_type>(item));
        return items;
    } else
        return from_python<T>(value);
}

} // namespace detail

template <class R> py::object to_python(const R &record)
{
    py::dict members;
    std::apply([&](auto... f) { ((members[f.name] = detail::value_to_python(record.*(f.member))), ...); },
               record_fields<R>::fields());
    return record_class(record_fields<R>::name)(**members);
}

template <class R> R from_python(py::handle object)
{
    R record{};
    auto read = [&](auto f) {
        try {
            record.*(f.member) =
                detail::value_from_python<std::remove_reference_t<decltype(record.*(f.member))>>(object.attr(f.name));
        } catch (py::error_already_set &e) {
            throw py::type_error(std::string(record_fields<R>::name) + "." + f.name + ": " + e.what());
        } catch (py::cast_error &) {
            throw py::type_error(std::string(record_fields<R>::name) + "." + f.name + ": " +
                                 std::string(py::repr(object.attr(f.name))) + " does not fit");
        } catch (std::exception &e) {
            throw py::type_error(std::string(record_fields<R>::name) + "." + f.name + ": " + e.what());
        }
    };
    std::apply([&](auto... f) { (read(f), ...); }, record_fields<R>::fields());
    return record;
}

// The tables. The order is the Python class's, which keeps the C++ record's.
#define VASK_PY_RECORD(R, NAME, ...)                                                                        \
    template <> struct record_fields<R> {                                                                     \
        static constexpr const char *name = NAME;                                                             \
        static auto fields() { return std::make_tuple(__VA_ARGS__); }                                         \
    }

VASK_PY_RECORD(ed_voting_info, "VotingInfo", member("status", &ed_voting_info::status),
               member("agree", &ed_voting_info::agree), member("disagree", &ed_voting_info::disagree),
               member("abandon", &ed_voting_info::abandon), member("total", &ed_voting_info::total),
               member("time", &ed_voting_info::time));
// `status` is left out: the parsers never set it, so its value is not defined.
VASK_PY_RECORD(sig_mic_on_data, "SigMicOnData", member("group", &sig_mic_on_data::group),
               member("id", &sig_mic_on_data::id), member("on", &sig_mic_on_data::on));
VASK_PY_RECORD(sig_voting_results_data, "SigVotingResultsData", member("status", &sig_voting_results_data::status),
               member("agree", &sig_voting_results_data::agree),
               member("disagree", &sig_voting_results_data::disagree),
               member("abandon", &sig_voting_results_data::abandon), member("total", &sig_voting_results_data::total),
               member("time", &sig_voting_results_data::time));
VASK_PY_RECORD(sig_info_data_change_data, "SigInfoDataChangeData", member("type", &sig_info_data_change_data::type),
               member("data", &sig_info_data_change_data::data));
VASK_PY_RECORD(sig_cam_status_data, "SigCamStatusData", member("status", &sig_cam_status_data::status),
               member("group", &sig_cam_status_data::group), member("id", &sig_cam_status_data::id),
               member("on", &sig_cam_status_data::on));
VASK_PY_RECORD(mic_node, "MicNode", member("group", &mic_node::group), member("id", &mic_node::id),
               member("on", &mic_node::on));
VASK_PY_RECORD(external_rs232_info, "ExternalRs232Info", member("number", &external_rs232_info::number),
               member("port", &external_rs232_info::port),
               member("description", &external_rs232_info::description));
VASK_PY_RECORD(imshare_info, "ImshareInfo", member("hid", &imshare_info::hid));
VASK_PY_RECORD(external_protocol_info, "ExternalProtocolInfo", member("enable", &external_protocol_info::enable),
               member("protocol", &external_protocol_info::protocol),
               member("ip_address", &external_protocol_info::ip_address),
               member("username", &external_protocol_info::username),
               member("password", &external_protocol_info::password),
               member("baud_rate", &external_protocol_info::baud_rate), member("port", &external_protocol_info::port));
VASK_PY_RECORD(external_control_info, "ExternalControlInfo",
               member("authentication", &external_control_info::authentication),
               member("port", &external_control_info::port), member("baud_rate", &external_control_info::baud_rate),
               member("portname", &external_control_info::portname));
VASK_PY_RECORD(cpreset, "Cpreset", member("c", &cpreset::c), member("p", &cpreset::p));
VASK_PY_RECORD(microphone_info, "MicrophoneInfo", member("tag", &microphone_info::tag),
               member("gr", &microphone_info::gr), member("id", &microphone_info::id),
               member("nt", &microphone_info::nt), member("cp_list", &microphone_info::cp_list),
               member("l", &microphone_info::l), member("o", &microphone_info::o), member("b", &microphone_info::b),
               member("s", &microphone_info::s));
VASK_PY_RECORD(multiple_speakers_mode, "MultipleSpeakersMode",
               member("multi_mode", &multiple_speakers_mode::multi_mode),
               member("cancel_mode", &multiple_speakers_mode::cancel_mode));
VASK_PY_RECORD(external_rs232_control, "ExternalRs232Control",
               member("builtin_TTY", &external_rs232_control::builtin_TTY),
               member("ignored_TTYUSB_A", &external_rs232_control::ignored_TTYUSB_A),
               member("ignored_TTYUSB_B", &external_rs232_control::ignored_TTYUSB_B),
               member("disable_USB_camctrl", &external_rs232_control::disable_USB_camctrl),
               member("enable_USB_wenk9", &external_rs232_control::enable_USB_wenk9),
               member("enable_USB_zorvo", &external_rs232_control::enable_USB_zorvo),
               member("port", &external_rs232_control::port), member("baud_rate", &external_rs232_control::baud_rate),
               member("default_command", &external_rs232_control::default_command),
               member("focus_command", &external_rs232_control::focus_command),
               member("conflict_command", &external_rs232_control::conflict_command));
VASK_PY_RECORD(macro_channel, "MacroChannel", member("channel", &macro_channel::channel),
               member("enable", &macro_channel::enable), member("preset", &macro_channel::preset));
VASK_PY_RECORD(external_zorvo_macro_info, "ExternalZorvoMacroInfo",
               member("index", &external_zorvo_macro_info::index),
               member("scenes", &external_zorvo_macro_info::scenes),
               member("channels", &external_zorvo_macro_info::channels));
VASK_PY_RECORD(external_zorvo_fw_info, "ExternalZorvoFwInfo", member("fw", &external_zorvo_fw_info::fw),
               member("bootloader_fw", &external_zorvo_fw_info::bootloader_fw));

#undef VASK_PY_RECORD

} // namespace vask_py

#endif
