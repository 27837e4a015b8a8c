#include "bindings.hpp"

#include <velacamplix/version.hpp>

#include <pybind11/numpy.h>

namespace {

constexpr const char* main_only = "velacamplix can be imported in the main interpreter only, not in a subinterpreter";

bool in_main_interpreter() { return PyInterpreterState_Get() == PyInterpreterState_Main(); }

}  // namespace

// What Python calls stands at the end of this file: pybind11's own would wait for ever in a subinterpreter, for the
// lock that its thread holds already.
#define PyInit__core initialised_by_pybind11

// The compiled half of the Python package. It converts arguments and buffers and lets go of the interpreter lock;
// whether an argument makes sense was decided in Python before (src/velacamplix/basics/checks.py). What decides which
// memory is touched is checked again in the turn (held_state.hpp).
PYBIND11_MODULE(_core, module) {
    using namespace velacamplix::python;

    // From 3.13 on Python makes its first call in the main interpreter, whoever imports.
    if (!in_main_interpreter()) throw pybind11::import_error(main_only);

    module.def("version", &pbamplix::version);
    module.def("instruction_set", &pbamplix::instruction_set);
    bind_processes(module);
    bind_statevector(module);
    bind_matrix_gates(module);
    bind_sampling(module);
    bind_observables(module);
    bind_inner_products(module);
    bind_loading(module);
    bind_exports(module);
    bind_program(module);
    bind_batch(module);
    bind_trajectories(module);
    bind_stages(module);
    bind_mapped(module);
    bind_part_values(module);

    // The first array looks for NumPy's functions and lets go of the interpreter lock meanwhile, in pybind11's own way,
    // which ends the process if the interpreter ends just then. So the first array is this one.
    const pybind11::array_t<double> first(0);
}

#undef PyInit__core

extern "C" PYBIND11_EXPORT PyObject* PyInit__core() {
    if (in_main_interpreter()) return initialised_by_pybind11();
    PyErr_SetString(PyExc_ImportError, main_only);
    return nullptr;
}
