#pragma once

#include <pybind11/pybind11.h>

// Each function adds one class, in both precisions, to the extension module.

namespace velacamplix::python {

void bind_circuit_record(pybind11::module_& module);
void bind_statevector(pybind11::module_& module);   // after the record, which it takes as an argument
void bind_matrix_gates(pybind11::module_& module);  // after the state vector

}  // namespace velacamplix::python
