// SPDX-License-Identifier: MIT
// Negative results of the library as Python exceptions. The exception classes and the meaning of
// each code live in vask_external_device._errors; this side only hands the operation and the code
// over.
#include "binding.h"

namespace vask_py {

void check(const char *operation, int result)
{
    if (result >= 0)
        return;
    py::object error = py::module_::import("vask_external_device._errors").attr("error_for")(operation, result);
    PyErr_SetObject(reinterpret_cast<PyObject *>(Py_TYPE(error.ptr())), error.ptr());
    throw py::error_already_set();
}

} // namespace vask_py
