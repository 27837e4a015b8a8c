"""What other packages call the things that the classes here have, for the message of who tries it."""

from __future__ import annotations

from typing import TYPE_CHECKING, Any

#: By class, then by the name that is tried: what to write here.
WRITE = {
    "Channel": {
        "compose": "one.then(two)",
        "expand": "one.tensor(two)",
        "kraus_operators": "channel.kraus()",
        "to_matrix": "channel.superoperator()",
    },
    "Circuit": {
        "add_gate": "circuit.h(0) and so on, or circuit.append(instruction)",
        "add_register": "Circuit(n_qubits, n_clbits, registers=[Register(...), ...])",
        "adjoint": "circuit.inverse()",
        "all_operations": "circuit.instructions",
        "assign_parameters": "circuit.bind(...)",
        "bind_parameters": "circuit.bind(...)",
        "c_if": "with circuit.when(bits, value): ...",
        "dagger": "circuit.inverse()",
        "depolarize": "circuit.channel(Channel.depolarizing(p), qubits)",
        "kraus": "circuit.channel(Channel.from_kraus(matrices), qubits)",
        "data": "circuit.instructions",
        "decompose": "circuit.basic_instructions()",
        "expectation": "run(circuit).expectation(observable)",
        "from_qasm_file": "Circuit.from_qasm(path)",
        "from_qasm_str": "Circuit.from_qasm(text)",
        "get_counts": "run(circuit, shots=1000).counts",
        "get_statevector": "run(circuit).state",
        "if_else": "circuit.if_((bits, value), body, else_body)",
        "if_test": "circuit.if_((bits, value), body, else_body), or with circuit.when(bits, value): ...",
        "qasm": "circuit.to_qasm()",
        "resolve_parameters": "circuit.bind(...)",
        "run": "run(circuit, shots=1000)",
        "sample": "run(circuit, shots=1000).shots",
        "save_expectation_value": "circuit.save_expectation(name, observable)",
        "save_statevector": "circuit.save_state(name), or run(circuit).state for the last one",
        "simulate": "run(circuit)",
        "size": "len(circuit)",
        "to_gate": "GateDefinition(name, circuit), then circuit.gate(definition, qubits)",
        "to_instruction": "GateDefinition(name, circuit), then circuit.gate(definition, qubits)",
        "while_loop": "circuit.while_((bits, value), body)",
        "width": "circuit.n_qubits + circuit.n_clbits",
    },
    "Counts": {
        "expectation_value": "counts.expectation(observable)",
        "expval": "counts.expectation(observable)",
        "hex_outcomes": "counts.hex()",
        "int_outcomes": "counts.ints()",
        "marginal_counts": "counts.marginal(positions)",
        "most_common": "counts.most_likely(k)",
        "most_frequent": "counts.most_likely()",
    },
    "DensityMatrix": {
        "amplitude": "rho.array: a mixed state has no amplitudes",
        "apply": "rho.run(circuit), or rho.h(0) and rho.channel(channel, qubits)",
        "apply_channel": "rho.channel(channel, qubits)",
        "binary_qram": "DensityMatrix.from_statevector(state), of a StateVector that loads it",
        "data": "rho.array",
        "density_matrix": "rho.array",
        "evolve": "rho.run(circuit)",
        "expectation_value": "rho.expectation(observable)",
        "expval": "rho.expectation(observable)",
        "from_label": "DensityMatrix(n).set_basis_state(text)",
        "from_matrix": "DensityMatrix.from_array(matrix)",
        "from_state_vector": "DensityMatrix.from_statevector(state)",
        "get_counts": "rho.counts(shots)",
        "inner": "rho.overlap(other)",
        "norm": "rho.trace()",
        "partial_trace": "rho.reduced(qubits), of those that stay",
        "phase_oracle": "rho.run(Circuit(n).diagonal(signs, qubits)), with -1 at what is marked",
        "prepare": "rho.run(Circuit(n).initialize(data, qubits)), which resets the qubits first",
        "probabilities_dict": "rho.distribution_dict()",
        "probs": "rho.distribution(qubits)",
        "qram": "DensityMatrix.from_statevector(state), of a StateVector that loads it",
        "sample_counts": "rho.counts(shots)",
        "schmidt": "rho.reduced(qubits): a mixed state has no Schmidt coefficients",
        "statevector": "rho.array: a mixed state has no amplitudes",
        "storage": "StateVector(n, storage=path): a mixed state lies in memory",
        "to_dict": "rho.array, or rho.distribution_dict()",
        "to_statevector": "numpy.linalg.eigh(rho.array): its last column, if the purity is 1",
        "vn_entropy": "rho.entropy()",
        "von_neumann_entropy": "rho.entropy()",
    },
    "NoiseModel": {
        "add_all_qubit_quantum_error": "noise.after(gates, channel)",
        "add_all_qubit_readout_error": "noise.readout(p1_given_0, p0_given_1)",
        "add_quantum_error": "noise.after(gates, channel, qubits, replace=True)",
        "add_readout_error": "noise.readout(p1_given_0, p0_given_1, qubits=qubits)",
        "from_backend": "NoiseModel.from_calibration(table)",
    },
    "Observable": {
        "coeffs": "[term.coefficient for term in observable.terms]",
        "compose": "one @ two",
        "dot": "one @ two",
        "expectation": "state.expectation(observable)",
        "expectation_value": "state.expectation(observable)",
        "from_label": 'Observable("ZZ")',
        "from_list": 'Observable({"ZZ": 0.5})',
        "from_operator": "Observable.from_matrix(matrix)",
        "get_matrix": "observable.to_matrix()",
        "group_observables": "observable.group_commuting()",
        "matrix": "observable.to_matrix()",
        "num_qubits": "observable.n_qubits",
        "ops": "observable.terms",
        "paulis": "[term.paulis for term in observable.terms]",
        "simplified": "observable.simplify()",
        "sparse_matrix": "observable.to_matrix(sparse=True)",
    },
    "Result": {
        "data": "result.counts, result.state, or result.to_dict()",
        "expectation_value": "result.expectation(observable)",
        "expval": "result.expectation(observable)",
        "final_state_vector": "result.statevector()",
        "get_counts": "result.counts",
        "get_memory": "result.bits, or result.shots",
        "get_probabilities": "result.distribution(qubits), or result.counts.probabilities()",
        "get_statevector": "result.statevector()",
        "histogram": "result.counts",
        "measurements": "result.bits, or result.shots",
        "memory": "result.bits, or result.shots",
        "probabilities": "result.distribution(qubits), or result.counts.probabilities()",
        "probs": "result.distribution(qubits)",
        "quasi_dists": "result.counts.probabilities()",
        "state_vector": "result.statevector()",
        "time_taken": "result.timings.total",
    },
    "StateVector": {
        "amplitudes": "state.array",
        "apply": "state.run(circuit), or state.h(0) and so on",
        "apply_circuit": "state.run(circuit)",
        "bloch_vector_of": "state.bloch_vector(qubit)",
        "data": "state.array",
        "density_matrix": "state.reduced(qubits)",
        "density_matrix_of": "state.reduced(qubits)",
        "dim": "state.array.size",
        "evolve": "state.run(circuit)",
        "expectation_value": "state.expectation(observable)",
        "expval": "state.expectation(observable)",
        "final_state_vector": "state.array",
        "from_label": "StateVector(n).set_basis_state(text)",
        "get_counts": "state.counts(shots)",
        "get_expectation_value": "state.expectation(observable)",
        "get_vector": "state.array",
        "inner": "state.overlap(other)",
        "inner_product": "state.overlap(other)",
        "partial_trace": "state.reduced(qubits), of those that stay",
        "probabilities_dict": "state.distribution_dict()",
        "probs": "state.distribution(qubits)",
        "reduced_density_matrix": "state.reduced(qubits)",
        "sample_counts": "state.counts(shots)",
        "sampling": "state.sample(shots)",
        "schmidt_decomposition": "state.schmidt(qubits, vectors=True)",
        "set_zero_state": "state.reset()",
        "state": "state.array",
        "unitary": "state.matrix(entries, qubits)",
        "update_quantum_state": "state.run(circuit)",
        "vector": "state.array",
        "vn_entropy": "state.entropy(qubits)",
        "von_neumann_entropy": "state.entropy(qubits)",
    },
}


def _missing(kind: type, owner: str, name: str, obj: Any) -> AttributeError:
    for base in kind.__mro__:
        written = WRITE.get(base.__name__, {}).get(name)
        if written:
            return AttributeError(f"{owner} has no attribute {name!r}: here that is {written}")
    if not name.startswith("_") and name != name.lower() and hasattr(kind, name.lower()):
        return AttributeError(f"{owner} has no attribute {name!r}: here that is {name.lower()}")
    # With what Python needs to look for a similar name.
    return AttributeError(f"{owner} has no attribute {name!r}", name=name, obj=obj)


class _GuidingClass(type):
    # For what is asked of the class itself, such as StateVector.from_label.
    if not TYPE_CHECKING:

        def __getattr__(cls, name: str) -> Any:
            raise _missing(cls, f"type object {cls.__name__!r}", name, cls)


class Guiding(metaclass=_GuidingClass):
    """Tells who tries a name of another package what to write here."""

    __slots__ = ()

    # Hidden from type checkers, which would take every name for one that is there.
    if not TYPE_CHECKING:

        def __getattr__(self, name: str) -> Any:
            raise _missing(type(self), f"{type(self).__name__!r} object", name, self)
