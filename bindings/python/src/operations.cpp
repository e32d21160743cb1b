// SPDX-License-Identifier: MIT
// The library's operations as Python functions: one line of glue each. Arguments are converted
// while the GIL is held, the library is called without it, and a negative result is raised.
#include "binding.h"
#include "records.h"

#include <string>
#include <tuple>
#include <vector>

namespace vask_py {
namespace {

// Calls `call(out)` without the GIL on a fresh `R` and returns it as a Python object.
template <class R, class Call> py::object read(const char *operation, Call call)
{
    R out{};
    check(operation, without_gil([&] { return call(out); }));
    return detail::value_to_python(out);
}

// Calls `call()` without the GIL; nothing to return but the check.
template <class Call> void run(const char *operation, Call call)
{
    check(operation, without_gil(call));
}

std::string text(py::handle value) { return text_from_python(value); }

// ---- operations that read the configuration files only (no bus)

py::object get_mic_central_info()
{
    return read<external_protocol_info>("get_mic_central_info", [](auto &out) { return ed_get_mic_central_info(&out); });
}

py::object get_castdeck_info()
{
    return read<external_protocol_info>("get_castdeck_info", [](auto &out) { return ed_get_castdeck_info(&out); });
}

py::object get_projector_settings()
{
    return read<external_protocol_info>("get_projector_settings",
                                        [](auto &out) { return ed_get_projector_settings(&out); });
}

py::object get_tcp_control_settings()
{
    return read<external_control_info>("get_tcp_control_settings",
                                       [](auto &out) { return ed_get_tcp_control_settings(&out); });
}

py::object get_mic_control_multiple_speakers_mode_info()
{
    return read<multiple_speakers_mode>("get_mic_control_multiple_speakers_mode_info",
                                        [](auto &out) { return ed_get_mic_control_multiple_speakers_mode_info(&out); });
}

py::object get_mic_control_cancel_mode_info()
{
    int cancel_mode = 0;
    microphone_info info;
    check("get_mic_control_cancel_mode_info",
          without_gil([&] { return ed_get_mic_control_cancel_mode_info(&cancel_mode, &info); }));
    return py::make_tuple(cancel_mode, to_python(info));
}

py::object get_mic_control_conflict_mode_info()
{
    return read<microphone_info>("get_mic_control_conflict_mode_info",
                                 [](auto &out) { return ed_get_mic_control_conflict_mode_info(&out); });
}

py::object get_mic_group_conflict_info(py::object gr)
{
    std::string group = text(gr);
    return read<std::vector<microphone_info>>("get_mic_group_conflict_info", [&](auto &out) {
        return ed_get_mic_group_conflict_info(group, &out);
    });
}

py::object get_mic_control_info(py::object gr, py::object id)
{
    std::string group = text(gr), ident = text(id);
    return read<std::vector<microphone_info>>("get_mic_control_info", [&](auto &out) {
        return ed_get_mic_control_info(group, ident, &out);
    });
}

py::object get_external_rs232_control_info()
{
    return read<external_rs232_control>("get_external_rs232_control_info",
                                        [](auto &out) { return ed_get_external_rs232_control_info(&out); });
}

py::object get_zorvo_fw_info()
{
    return read<external_zorvo_fw_info>("get_zorvo_fw_info", [](auto &out) { return ed_get_zorvo_fw_info(&out); });
}

py::object get_zorvo_macro_info()
{
    return read<std::vector<external_zorvo_macro_info>>("get_zorvo_macro_info",
                                                        [](auto &out) { return ed_get_zorvo_macro_info(&out); });
}

void set_zorvo_macro_info(py::object macros)
{
    auto list = detail::value_from_python<std::vector<external_zorvo_macro_info>>(macros);
    run("set_zorvo_macro_info", [&] { return ed_set_zorvo_macro_info(list); });
}

// ---- operations that call the service

py::object get_voting()
{
    return read<ed_voting_info>("get_voting", [](auto &out) { return ed_get_voting(out); });
}

py::object set_voting(py::object action)
{
    ed_voting_info info{};
    if (PyLong_Check(action.ptr()) && !PyBool_Check(action.ptr()))
        info.status = action.cast<int>();
    else
        info = from_python<ed_voting_info>(action);
    run("set_voting", [&] { return ed_set_voting(info); });
    return to_python(info);
}

void mic_central_connection_test(py::object info)
{
    auto settings = from_python<external_protocol_info>(info);
    run("mic_central_connection_test", [&] { return ed_mic_central_connection_test(settings); });
}

int get_mic_central_connection_state()
{
    int state = 0;
    run("get_mic_central_connection_state", [&] { return ed_get_mic_central_connection_state(&state); });
    return state;
}

py::object get_mic_on_list()
{
    return read<std::vector<mic_node>>("get_mic_on_list", [](auto &out) { return ed_get_mic_on_list(&out); });
}

py::object get_external_rs232_device_list()
{
    return read<std::vector<external_rs232_info>>("get_external_rs232_device_list",
                                                  [](auto &out) { return ed_get_external_rs232_device_list(&out); });
}

py::object get_imshare_info()
{
    return read<imshare_info>("get_imshare_info", [](auto &out) { return ed_get_imshare_info(&out); });
}

void set_imshare_info(py::object info)
{
    auto flag = from_python<imshare_info>(info);
    run("set_imshare_info", [&] { return ed_set_imshare_info(flag); });
}

void set_mic_central_info(py::object info)
{
    auto settings = from_python<external_protocol_info>(info);
    run("set_mic_central_info", [&] { return ed_set_mic_central_info(settings); });
}

void set_castdeck_info(py::object info)
{
    auto settings = from_python<external_protocol_info>(info);
    run("set_castdeck_info", [&] { return ed_set_castdeck_info(settings); });
}

void pjlink_test(py::object ip_address, py::object password)
{
    std::string ip = text(ip_address), secret = text(password);
    run("pjlink_test", [&] { return ed_pjlink_test(ip, secret); });
}

void hitachi_tcp_test(py::object ip_address, py::object password)
{
    std::string ip = text(ip_address), secret = text(password);
    run("hitachi_tcp_test", [&] { return ed_hitachi_tcp_test(ip, secret); });
}

void set_pjlink_settings(py::object ip_address, py::object password)
{
    std::string ip = text(ip_address), secret = text(password);
    run("set_pjlink_settings", [&] { return ed_set_pjlink_settings(ip, secret); });
}

void set_hitachi_tcp_settings(py::object ip_address, py::object password)
{
    std::string ip = text(ip_address), secret = text(password);
    run("set_hitachi_tcp_settings", [&] { return ed_set_hitachi_tcp_settings(ip, secret); });
}

void set_hitachi_rs232_settings(py::object baud_rate)
{
    std::string baud = text(baud_rate);
    run("set_hitachi_rs232_settings", [&] { return ed_set_hitachi_rs232_settings(baud); });
}

void set_none_settings()
{
    run("set_none_settings", [] { return ed_set_none_settings(); });
}

void set_tcp_control_settings(bool authentication, py::object port)
{
    std::string tcp_port = text(port);
    run("set_tcp_control_settings", [&] { return ed_set_tcp_control_settings(authentication, tcp_port); });
}

void exe_mic_control_info(int action, py::object info)
{
    auto item = from_python<microphone_info>(info);
    run("exe_mic_control_info", [&] { return ed_exe_mic_control_info(action, item); });
}

void set_mic_control_cancel_mode_info(int cancel_mode, py::object info)
{
    auto item = from_python<microphone_info>(info);
    run("set_mic_control_cancel_mode_info", [&] { return ed_set_mic_control_cancel_mode_info(cancel_mode, item); });
}

void set_mic_control_multiple_speakers_mode_info(py::object mode)
{
    auto modes = from_python<multiple_speakers_mode>(mode);
    run("set_mic_control_multiple_speakers_mode_info",
        [&] { return ed_set_mic_control_multiple_speakers_mode_info(modes); });
}

void set_external_rs232_control_info(py::object info)
{
    auto options = from_python<external_rs232_control>(info);
    run("set_external_rs232_control_info", [&] { return ed_set_external_rs232_control_info(options); });
}

void zorvo_goto_macro(int macro_index)
{
    run("zorvo_goto_macro", [&] { return ed_zorvo_goto_macro(macro_index); });
}

// Registers `f` as a method of Client (the instance is not needed: the library is process-wide).
template <class R, class... A, class... Extra>
void def_method(py::class_<client_base> &client, const char *name, R (*f)(A...), const char *doc,
                const Extra &...extra)
{
    client.def(name, [f](client_base &, A... args) -> R { return f(std::move(args)...); }, doc, extra...);
}

// Registers `f` as a method of Client and as a module function: it needs no bus.
template <class R, class... A, class... Extra>
void def_local(py::module_ &m, py::class_<client_base> &client, const char *name, R (*f)(A...), const char *doc,
               const Extra &...extra)
{
    m.def(name, f, doc, extra...);
    def_method(client, name, f, doc, extra...);
}

// Registers an operation on one microphone item (the setters and deleters differ only in the
// library function).
void def_item_operation(py::class_<client_base> &client, const char *name, int (*operation)(microphone_info &),
                        const char *doc)
{
    client.def(
        name,
        [name, operation](client_base &, py::object info) {
            auto item = from_python<microphone_info>(info);
            run(name, [&] { return operation(item); });
        },
        doc, py::arg("info"));
}

} // namespace

void define_operations(py::module_ &m, py::class_<client_base> &client)
{
    using py::arg;
    // Readers and writers of the configuration files: module functions and methods.
    def_local(m, client, "get_mic_central_info", get_mic_central_info,
              "The stored mic central settings (\"miccentral_control\") as an ExternalProtocolInfo.\n"
              "Wraps ed_get_mic_central_info; raises Error(-1) when the file or section cannot be read.");
    def_local(m, client, "get_castdeck_info", get_castdeck_info,
              "The stored media station settings (\"castdeck_control\") as an ExternalProtocolInfo.\n"
              "Wraps ed_get_castdeck_info; raises Error(-1) when the file or section cannot be read.");
    def_local(m, client, "get_projector_settings", get_projector_settings,
              "The stored projector settings (\"projector_control\") as an ExternalProtocolInfo:\n"
              "protocol 0 none, 1 hitachi_tcp, 21 hitachi_rs232, 24 pjlink, -1 unknown.\n"
              "Wraps ed_get_projector_settings; raises Error(-1) when the file or section cannot be read.");
    def_local(m, client, "get_tcp_control_settings", get_tcp_control_settings,
              "The stored external control settings (\"external_control\") as an ExternalControlInfo.\n"
              "Wraps ed_get_tcp_control_settings; raises Error(-1) when they cannot be read.");
    def_local(m, client, "get_mic_control_multiple_speakers_mode_info", get_mic_control_multiple_speakers_mode_info,
              "The stored multiple-speakers mode as a MultipleSpeakersMode.\n"
              "Wraps ed_get_mic_control_multiple_speakers_mode_info; raises Error(-1) when\n"
              "/etc/microphone_control.json cannot be read.");
    def_local(m, client, "get_mic_control_cancel_mode_info", get_mic_control_cancel_mode_info,
              "The stored default item: a tuple (cancel_mode, MicrophoneInfo).\n"
              "Wraps ed_get_mic_control_cancel_mode_info; raises Error(-1) when it cannot be read.");
    def_local(m, client, "get_mic_control_conflict_mode_info", get_mic_control_conflict_mode_info,
              "The stored general-conflict item as a MicrophoneInfo.\n"
              "Wraps ed_get_mic_control_conflict_mode_info; raises Error(-1) when it cannot be read.");
    def_local(m, client, "get_mic_group_conflict_info", get_mic_group_conflict_info,
              "The stored group-conflict items of group `gr` (\"\" = every group) as a list of\n"
              "MicrophoneInfo. Wraps ed_get_mic_group_conflict_info, which fails with -1 when no item\n"
              "matches: that raises Error(-1) rather than returning an empty list.",
              arg("gr") = "");
    def_local(m, client, "get_mic_control_info", get_mic_control_info,
              "The stored microphone control items of group `gr` and id `id` (\"\" = any) as a list of\n"
              "MicrophoneInfo. Wraps ed_get_mic_control_info, which fails with -1 when no item matches:\n"
              "that raises Error(-1) rather than returning an empty list.",
              arg("gr") = "", arg("id") = "");
    def_local(m, client, "get_external_rs232_control_info", get_external_rs232_control_info,
              "The stored RS232 control options (\"external_rs232_config\") as an ExternalRs232Control.\n"
              "Wraps ed_get_external_rs232_control_info; raises Error(-1) when they cannot be read.");
    def_local(m, client, "get_zorvo_fw_info", get_zorvo_fw_info,
              "The remote controller's stored versions as an ExternalZorvoFwInfo (both \"\" when the\n"
              "file does not exist). Wraps ed_get_zorvo_fw_info; raises Error(-1) when the section is bad.");
    def_local(m, client, "get_zorvo_macro_info", get_zorvo_macro_info,
              "The remote controller's stored macros as a list of ExternalZorvoMacroInfo, sized by the box\n"
              "model ([] when the file does not exist). Wraps ed_get_zorvo_macro_info.");
    def_local(m, client, "set_zorvo_macro_info", set_zorvo_macro_info,
              "Stores `macros` (a list of ExternalZorvoMacroInfo, at least as many macros and channels as\n"
              "the box model has; get_zorvo_macro_info gives such a list). The service is not called.\n"
              "Wraps ed_set_zorvo_macro_info; raises Error(-1) when the list is short or the write fails.",
              arg("macros"));

    // Operations that call the service: methods of an open Client.
    def_method(client, "get_voting", get_voting,
               "The delegate vote (\"query_voting\") as a VotingInfo. Wraps ed_get_voting.\n"
               "Raises Error (-1 to -3) or Timeout (-4, no answer within 8 s).");
    def_method(client, "set_voting", set_voting,
               "Moves the vote on. `action` is one of VOTING_ENTER (0), VOTING_STOP (1), VOTING_START (2),\n"
               "VOTING_EXIT (3), VOTING_QUERY (any other number), or a VotingInfo whose status is one.\n"
               "Returns the VotingInfo as the library left it: filled from the reply after stop and query,\n"
               "unchanged otherwise. Wraps ed_set_voting; raises Error or Timeout.",
               arg("action"));
    def_method(client, "mic_central_connection_test", mic_central_connection_test,
               "Asks the service to test a connection to the mic central with the protocol, ip_address,\n"
               "username and password of `info` (an ExternalProtocolInfo). Wraps\n"
               "ed_mic_central_connection_test; raises Error or Timeout when the test fails.",
               arg("info"));
    def_method(client, "get_mic_central_connection_state", get_mic_central_connection_state,
               "Whether the mic central is connected: the service's \"isconnect\" as an int.\n"
               "Wraps ed_get_mic_central_connection_state; raises Error or Timeout.");
    def_method(client, "get_mic_on_list", get_mic_on_list,
               "The microphones that are on, as a list of MicNode in the service's order.\n"
               "Wraps ed_get_mic_on_list; raises Error or Timeout.");
    def_method(client, "get_external_rs232_device_list", get_external_rs232_device_list,
               "The RS232 devices the service sees, as a list of ExternalRs232Info.\n"
               "Wraps ed_get_external_rs232_device_list; raises Error or Timeout.");
    def_method(client, "get_imshare_info", get_imshare_info,
               "The image-share flag as an ImshareInfo. Wraps ed_get_imshare_info; raises Error or Timeout.");
    def_method(client, "set_imshare_info", set_imshare_info,
               "Sets the image-share flag to info.hid (an ImshareInfo). Wraps ed_set_imshare_info.",
               arg("info"));
    def_method(client, "set_mic_central_info", set_mic_central_info,
               "Stores the mic central settings `info` (an ExternalProtocolInfo) when they differ from the\n"
               "stored ones, then tells the service. Wraps ed_set_mic_central_info; raises Error(-1) when\n"
               "the store fails (the service is not told), or the call's Error or Timeout.",
               arg("info"));
    def_method(client, "set_castdeck_info", set_castdeck_info,
               "Stores the media station settings `info` (protocol 0, 1 or 21), then tells the service.\n"
               "Wraps ed_set_castdeck_info; raises Error(-2) for another protocol, Error(-1) when the store\n"
               "fails, or the call's Error or Timeout.",
               arg("info"));
    def_method(client, "pjlink_test", pjlink_test,
               "Asks the service to test a PJLink projector. Wraps ed_pjlink_test; raises Error or Timeout.",
               arg("ip_address"), arg("password"));
    def_method(client, "hitachi_tcp_test", hitachi_tcp_test,
               "Asks the service to test a Hitachi projector over TCP. Wraps ed_hitachi_tcp_test.",
               arg("ip_address"), arg("password"));
    def_method(client, "set_pjlink_settings", set_pjlink_settings,
               "Stores the projector as PJLink at `ip_address` with `password`, then tells the service.\n"
               "Wraps ed_set_pjlink_settings; raises Error(-1) when the store fails, or the call's error.",
               arg("ip_address"), arg("password"));
    def_method(client, "set_hitachi_tcp_settings", set_hitachi_tcp_settings,
               "Stores the projector as Hitachi over TCP, then tells the service. Wraps\n"
               "ed_set_hitachi_tcp_settings.",
               arg("ip_address"), arg("password"));
    def_method(client, "set_hitachi_rs232_settings", set_hitachi_rs232_settings,
               "Stores the projector as Hitachi over RS232 at `baud_rate` (decimal text), then tells the\n"
               "service. Wraps ed_set_hitachi_rs232_settings.",
               arg("baud_rate"));
    def_method(client, "set_none_settings", set_none_settings,
               "Stores \"no projector\", then tells the service. Wraps ed_set_none_settings.");
    def_method(client, "set_tcp_control_settings", set_tcp_control_settings,
               "Stores external control over TCP (`authentication`, `port` as text), then tells the\n"
               "service. Wraps ed_set_tcp_control_settings.",
               arg("authentication"), arg("port"));
    def_method(client, "exe_mic_control_info", exe_mic_control_info,
               "Asks the service to act on item `info` without storing it: `action` 0 simulates, 1\n"
               "executes, 2 goes home (MIC_CONTROL_SIMULATE, MIC_CONTROL_EXECUTE, MIC_CONTROL_HOME).\n"
               "Wraps ed_exe_mic_control_info; raises Error(-2) for another action.",
               arg("action"), arg("info"));
    def_item_operation(client, "set_mic_control_info", ed_set_mic_control_info,
                       "Stores control item `info` (a MicrophoneInfo), then sends it to the service.\n"
                       "Wraps ed_set_mic_control_info.");
    def_item_operation(client, "del_mic_control_info", ed_del_mic_control_info,
                       "Deletes the stored control item of info.gr and info.id, then tells the service.\n"
                       "Wraps ed_del_mic_control_info.");
    def_item_operation(client, "set_mic_group_conflict_info", ed_set_mic_group_conflict_info,
                       "Stores the group-conflict item `info` of its group, then sends it to the service.\n"
                       "Wraps ed_set_mic_group_conflict_info.");
    def_item_operation(client, "del_mic_group_conflict_info", ed_del_mic_group_conflict_info,
                       "Deletes the stored group-conflict item of info.gr, then tells the service.\n"
                       "Wraps ed_del_mic_group_conflict_info.");
    def_item_operation(client, "set_mic_control_conflict_mode_info", ed_set_mic_control_conflict_mode_info,
                       "Stores the general-conflict item `info`, then tells the service.\n"
                       "Wraps ed_set_mic_control_conflict_mode_info.");
    def_method(client, "set_mic_control_cancel_mode_info", set_mic_control_cancel_mode_info,
               "Stores `cancel_mode` and the default item `info`, then tells the service.\n"
               "Wraps ed_set_mic_control_cancel_mode_info.",
               arg("cancel_mode"), arg("info"));
    def_method(client, "set_mic_control_multiple_speakers_mode_info", set_mic_control_multiple_speakers_mode_info,
               "Stores the multiple-speakers mode `mode` (a MultipleSpeakersMode), then tells the service.\n"
               "Wraps ed_set_mic_control_multiple_speakers_mode_info.",
               arg("mode"));
    def_method(client, "set_external_rs232_control_info", set_external_rs232_control_info,
               "Stores the RS232 control options `info` (an ExternalRs232Control), then tells the service.\n"
               "Wraps ed_set_external_rs232_control_info.",
               arg("info"));
    def_method(client, "zorvo_goto_macro", zorvo_goto_macro,
               "Asks the service to run remote-controller macro `macro_index` (from 1) now.\n"
               "Wraps ed_zorvo_goto_macro; raises Error or Timeout.",
               arg("macro_index"));
}

} // namespace vask_py
