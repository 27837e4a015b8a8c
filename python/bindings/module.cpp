#include "bindings.hpp"

#include <velacamplix/version.hpp>

// The compiled half of the Python package. It converts arguments and buffers and lets go of the interpreter lock;
// whether an argument makes sense was decided in Python before (src/velacamplix/_check.py).
PYBIND11_MODULE(_core, module) {
    using namespace velacamplix::python;

    module.def("version", &pbamplix::version);
    module.def("instruction_set", &pbamplix::instruction_set);
    bind_processes(module);
    bind_statevector(module);
    bind_matrix_gates(module);
    bind_sampling(module);
    bind_observables(module);
    bind_loading(module);
    bind_exports(module);
    bind_program(module);
}
