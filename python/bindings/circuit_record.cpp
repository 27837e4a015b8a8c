#include "bindings.hpp"

#include <velacamplix/circuit.hpp>

#include <pybind11/stl.h>

namespace velacamplix::python {

namespace py = pybind11;

namespace {

template <class T>
void bind_one_record(py::module_& module, const char* name) {
    using Record = pbamplix::PybindAmplixWCircuit<T>;
    py::class_<Record>(module, name)
        .def(py::init<unsigned int>(), py::arg("n"))
        .def("add_gate", &Record::add_gate, py::arg("name"), py::arg("params"), py::arg("qubits"))
        .def("__len__", [](const Record& record) { return record.gates.size(); });
}

}  // namespace

void bind_circuit_record(py::module_& module) {
    bind_one_record<float>(module, "CircuitRecordSingle");
    bind_one_record<double>(module, "CircuitRecordDouble");
}

}  // namespace velacamplix::python
