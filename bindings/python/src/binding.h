// SPDX-License-Identifier: MIT
// What the parts of the extension module share.
#ifndef VASK_PY_BINDING_H
#define VASK_PY_BINDING_H

#include <pybind11/pybind11.h>

#include <utility>

namespace vask_py {

namespace py = pybind11;

// Raises vask_external_device.Error (or Timeout for -4) naming `operation` when `result` < 0.
void check(const char *operation, int result);

// Runs `work` with the GIL released: other Python threads go on while the library waits for the
// service (up to 8 s) or for the configuration lock.
template <class F> auto without_gil(F &&work)
{
    py::gil_scoped_release released;
    return std::forward<F>(work)();
}

// The Client's base class: the operations are its methods (and, for those that need no bus, module
// functions too).
struct client_base {};

void define_operations(py::module_ &m, py::class_<client_base> &client);
void define_signals(py::module_ &m);

} // namespace vask_py

#endif
