#pragma once

#include <pybind11/pybind11.h>

// Each function adds one subject, in both precisions, to the extension module.

namespace velacamplix::python {

void bind_processes(pybind11::module_& module);
void bind_statevector(pybind11::module_& module);

// What follows takes the state vector as an argument.
void bind_matrix_gates(pybind11::module_& module);
void bind_sampling(pybind11::module_& module);
void bind_observables(pybind11::module_& module);
void bind_inner_products(pybind11::module_& module);
void bind_loading(pybind11::module_& module);
void bind_exports(pybind11::module_& module);
void bind_program(pybind11::module_& module);
// What follows takes programs too.
void bind_batch(pybind11::module_& module);
void bind_trajectories(pybind11::module_& module);
void bind_stages(pybind11::module_& module);
void bind_mapped(pybind11::module_& module);
void bind_part_values(pybind11::module_& module);

}  // namespace velacamplix::python
