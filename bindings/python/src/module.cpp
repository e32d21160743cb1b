// SPDX-License-Identifier: MIT
// The compiled part of the vask_external_device package: vask_external_device._native.
#include "binding.h"

PYBIND11_MODULE(_native, m)
{
    m.doc() = "The compiled part of vask_external_device; use the package, not this module.";
    pybind11::class_<vask_py::client_base> client(m, "ClientBase", "The library's operations as methods.");
    client.def(pybind11::init<>());
    vask_py::define_signals(m);
    vask_py::define_operations(m, client);
}
