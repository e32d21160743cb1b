// SPDX-License-Identifier: MIT
// The Python side of the record tables: the classes, and text in both directions.
#include "records.h"

#include <map>
#include <string>

namespace vask_py {

py::handle record_class(const char *name)
{
    // Called with the GIL held, so the map needs no lock of its own. The classes are kept for the
    // life of the process: nothing is released while the interpreter shuts down.
    static std::map<std::string, py::handle> *classes = new std::map<std::string, py::handle>();
    auto found = classes->find(name);
    if (found != classes->end())
        return found->second;
    py::handle cls = py::object(py::module_::import("vask_external_device._records").attr(name)).release();
    classes->emplace(name, cls);
    return cls;
}

py::str to_python_text(const std::string &text)
{
    PyObject *decoded = PyUnicode_DecodeUTF8(text.data(), static_cast<Py_ssize_t>(text.size()), "surrogateescape");
    if (decoded == nullptr)
        throw py::error_already_set();
    return py::reinterpret_steal<py::str>(decoded);
}

std::string text_from_python(py::handle value)
{
    if (!PyUnicode_Check(value.ptr()))
        throw py::type_error("expected a str, got " + std::string(py::str(py::type::handle_of(value))));
    PyObject *encoded = PyUnicode_AsEncodedString(value.ptr(), "utf-8", "surrogateescape");
    if (encoded == nullptr)
        throw py::error_already_set();
    auto bytes = py::reinterpret_steal<py::bytes>(encoded);
    return std::string(bytes);
}

} // namespace vask_py
