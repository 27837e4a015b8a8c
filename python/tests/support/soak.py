"""Every public call of the package again and again, for `test_soak`, which starts this file as a process of its own.

Each round has other numbers, so that what is kept by its arguments is kept anew. After a stretch to warm up, prints how
much more there is at the end of every stretch of rounds than at its beginning: what leaks does so in all of them.
"""

import gc
import inspect
import json
import math
import os
import sys
import tempfile
from collections.abc import Iterator

import velacamplix
from velacamplix import Circuit, Counts, DensityMatrix, GateDefinition, Instruction, Observable, Parameter, StateVector, run
from velacamplix.instructions.gate_methods import GateMethods
from velacamplix.instructions.many_qubit_methods import ManyQubitMethods

ROUNDS, STRETCHES = 20, 4
# States of 256 KiB: ten of them stand out from what the C library keeps.
N_QUBITS = 14

QASM_3 = 'OPENQASM 3.0; gate g%d a { U(0, 0, 1) a; } qubit[2] q; bit[2] c%d; for int i in [0:1] { g%d q[i]; } c%d = measure q;\n'
QASM = 'OPENQASM 2.0;\ninclude "qelib1.inc";\ngate g%d a { h a; }\nqreg q[2];\ncreg c[2];\ng%d q[0];\nmeasure q -> c;\n'


def template():
    x, y = Parameter("x"), Parameter("y")
    circuit = Circuit(N_QUBITS, 2).h(0).rx(x, 0).ry(2 * x + y, 1)
    return circuit.gate(GateDefinition("turn", Circuit(2).ry(x, 0).cx(0, 1)), [2, 3], [x])


TEMPLATE = template()
BODY = (Instruction("X", (0,)),)


def makers(i):
    """How to make one of each class, to call methods of."""
    return {
        "BatchResult": lambda: run(Circuit(2).ry(Parameter("a"), 0).cx(0, 1), values={"a": [0.1 * i, 0.2]}, shots=30, seed=i),
        "Bits": lambda: Circuit(1, 2).bits(0),
        "Channel": lambda: velacamplix.Channel.thermal_relaxation(50.0, 70.0, 1.0 + i),
        "Circuit": lambda: Circuit(N_QUBITS, N_QUBITS).h(0).cx(0, 1).t(1),
        "CommutingGroup": lambda: Observable(f"{i + 1}*Z0 X1 + Y3").group_commuting()[0],
        "CompoundCondition": lambda: velacamplix.Condition((0,), i % 2) & velacamplix.Condition((1,), 1),
        "Condition": lambda: velacamplix.Condition((0, 1), i % 4),
        "Counts": lambda: Counts({"00": i + 1, "01": 3}),
        "DensityMatrix": lambda: DensityMatrix(4, seed=i),
        "Estimate": lambda: velacamplix.Estimate(0.5, 0.1 + i),
        "Expression": lambda: 2 * Parameter("x") + i,
        "GateDefinition": lambda: GateDefinition(f"own{i}", Circuit(2).ry(0.1 + i, 0).cx(0, 1)),
        "If": lambda: velacamplix.If(velacamplix.Condition((0,), 1), BODY),
        "Instruction": lambda: Instruction("RX", (0,), (0.1 + i,)),
        "NoiseModel": lambda: velacamplix.NoiseModel().after("ry", velacamplix.Channel.bit_flip(0.001 * i)).readout(0.1, 0.2),
        "Observable": lambda: Observable(f"{i + 1}*Z0 X1 + Y3"),
        "Parameter": lambda: Parameter(f"p{i}"),
        "ParameterVector": lambda: velacamplix.ParameterVector(f"v{i}", 3),
        "MethodCost": lambda: velacamplix.MethodCost("exact", 1.0, i, True),
        "Pass": lambda: velacamplix.Pass(0, i, (0,)),
        "Plan": lambda: velacamplix.Plan(i, (), 1.0),
        "Progress": lambda: velacamplix.Progress(i, 100, 0.5, 2.0, 3.0),
        "QasmError": lambda: velacamplix.QasmError("wrong", line=i + 1, column=1),
        "Readout": lambda: velacamplix.Readout(((0.01 * i, 0.1),)),
        "Register": lambda: velacamplix.Register("r", "quantum", 0, i + 1),
        "Result": lambda: run(Circuit(N_QUBITS).h(0).cx(0, 1).rx(0.1 * i, 4), shots=30, seed=i),
        "Schmidt": lambda: StateVector(4).h(i % 4).schmidt(0, vectors=True),
        "Save": lambda: velacamplix.Save("probabilities", f"p{i}"),
        "Saved": lambda: run(Circuit(2).h(0).save_probabilities("p")).saved,
        "StateVector": lambda: StateVector(N_QUBITS, seed=i),
        "Storage": lambda: velacamplix.Storage(f"nowhere{i}"),
        "StoragePlan": lambda: velacamplix.Storage(f"nowhere{i}", 3).plan(Circuit(3).h(0)),
        "Store": lambda: velacamplix.Store((True, velacamplix.Condition((0,), i % 2))),
        "Switch": lambda: velacamplix.Switch((0,), (((1,), BODY),)),
        "Term": lambda: velacamplix.Term(0.5, "Z", (i,)),
        "Timings": lambda: velacamplix.Timings(0.1, 0.2, 0.3, 0.4 * i),
        "ValueAndGradient": lambda: Circuit(1).rx(Parameter("x"), 0).value_and_gradient("Z0", [0.1 * i]),
        "While": lambda: velacamplix.While(velacamplix.Condition((0,), 1), BODY),
        "UnsupportedInstruction": lambda: velacamplix.UnsupportedInstruction("not"),
    }


def arguments(i, path):
    """By name of the parameter, or of the method and the parameter."""
    turn = 0.1 + 0.001 * i
    stored = {kind: f"{path}.{kind}.npz" for kind in ("StateVector", "Result", "DensityMatrix")}
    if not os.path.exists(stored["Result"]):
        StateVector(N_QUBITS).h(0).save(stored["StateVector"])
        DensityMatrix(4).h(0).save(stored["DensityMatrix"])
        run(Circuit(N_QUBITS).h(0), shots=10, seed=1).save(stored["Result"])
    return {
        "qubit": 0, "qubit1": 0, "qubit2": 1, "control": 7, "control1": 8, "control2": 9, "control3": 6, "target": 2,
        "angle": turn, "theta": turn, "phi": turn + 0.1, "lam": turn + 0.2, "gamma": turn + 0.3, "beta": turn + 0.4, "letters": "XYZIIZYX" + "I" * (N_QUBITS - 8),
        "qubits": [0, 1], "controls": [3], "clbits": [0, 1], "address_qubits": [4, 5], "value_qubits": [6],
        "matrix": [[1, 0, 0, 0], [0, 1, 0, 0], [0, 0, 0, 1], [0, 0, 1, 0]], "entries": [1, 1, 1, 1j],
        "Channel.pauli.probabilities": {"XZ": turn}, "Channel.from_unitaries.probabilities": [1 - turn, turn], "p": turn, "p0": turn,
        "matrices": [[[1, 0], [0, 1]]], "Channel.from_unitaries.matrices": [[[1, 0], [0, 1]], [[0, 1], [1, 0]]],
        "gates": ["cx", "cz"], "durations": {"cx": turn}, "NoiseModel.from_dict.values": makers(i)["NoiseModel"]().to_dict(),
        "Channel.from_dict.values": makers(i)["Channel"]().to_dict(), "table": {"gates": [{"gate": "cx", "error": 0.1 * turn}]},
        "channel": velacamplix.Channel.depolarizing(turn, 2), "excited": turn, "t1": 1.0, "t2": 1.0 + turn,
        **{f"Channel.{word}.other": velacamplix.Channel.depolarizing(turn) for word in ("then", "tensor")},
        "observable": f"{turn}*Z0 X1", "outcome": 0, "shots": 20 + i, "value": 0, "marked": [i % 4],
        "Circuit.when.clbits": velacamplix.Condition((0, 1), i % 4), "Circuit.bind.values": [],
        "Circuit.initialize.state": "0" * N_QUBITS,
        "StateVector.prepare.data": [math.cos(turn), 0, 0, math.sin(turn)], "StateVector.qram.data": [[turn, 0.5]] * 4,
        "StateVector.binary_qram.data": [0, 1, i % 2, 1], "StateVector.project.value": 0,
        "StateVector.set_basis_state.state": i, "StateVector.set_state.array": [1.0] + [0.0] * (2**N_QUBITS - 1),
        "DensityMatrix.from_array.matrix": [[0.5, 0.1], [0.1, 0.5]], "DensityMatrix.from_statevector.state": StateVector(3).h(0),
        "DensityMatrix.project.value": 0, "DensityMatrix.project_then_reset.value": 0, "DensityMatrix.set_state.array": [1.0] + [0.0] * 15,
        "DensityMatrix.set_basis_state.state": i % 16, "DensityMatrix.run.circuit": Circuit(2, 1).h(0).rx(turn, 1).measure(0, 0).reset(0),
        "DensityMatrix.overlap.other": DensityMatrix(4).rx(turn, 1), "DensityMatrix.fidelity.other": DensityMatrix(4).rx(turn, 1),
        "circuit": TEMPLATE.bind(x=turn, y=1.0), "other": Circuit(2).h(0), "instruction": Instruction("X", (0,)),
        "definition": GateDefinition(f"mine{i}", Circuit(2).rx(turn, 0).cx(0, 1)), "times": 2, "exponent": -2, "time": turn, "ParameterVector.named.values": [turn, 1.0, 2.0],
        "path_or_text": path, "Circuit.from_qasm.path_or_text": QASM % (i, i), "Circuit.from_qasm3.path_or_text": QASM_3 % (i, i, i, i),
        "Counts.from_ints.counts": {0: 5, i: 7}, "n_bits": 8, "Counts.fromkeys.iterable": ["0", "1"],
        "Counts.pop.outcome": "00", "Counts.setdefault.outcome": "10", "key": "00", "positions": [1],
        "Expression.evaluate.values": {"x": turn}, "Expression.substitute.values": {"x": turn},
        "Expression.value_from.values": {"x": turn}, "Parameter.evaluate.values": {f"p{i}": turn},
        "Parameter.substitute.values": {f"p{i}": turn}, "Parameter.value_from.values": {f"p{i}": turn}, "known": {},
        "GateDefinition.checked.name": f"checked{i}", "params": (), "n_qubits": 1, "body": (Instruction("H", (0,)),),
        "Result.register_counts.name": "q", "n": 5, "instructions": [Instruction("X", (0,))] * 3,
        "Observable.commutator.other": Observable(f"{turn}*X0"), "Observable.projector.outcome": "01",
        "bodies": (BODY,), "If.with_bodies.bodies": (BODY, ()), "Switch.with_bodies.bodies": (BODY, ()),
        "Save.with_bodies.bodies": (), "Store.with_bodies.bodies": (), "condition": velacamplix.Condition((0,), 1), "cases": {1: Circuit(2).x(i % 2)},
        "name": f"kept{i}", "observables": [f"{turn}*Z0 X1"], "vector": [turn], "tangent": [], "values": {},
        "Saved.get.name": "p", "bits": i % 4, "vectors": False, "step": Instruction("if", (0,), clbits=(0,), detail=makers(i)["If"]()), "Circuit.if_.body": Circuit(2).x(1), "Circuit.while_.body": Circuit(2, 2).x(0).measure(0, 0), "Counts.expectation.observable": f"{turn}*Z0 Z1",
        **{f"{kind}.{word}.other": StateVector(N_QUBITS).rx(turn, i % N_QUBITS)
           for kind in ("StateVector", "Result") for word in ("overlap", "fidelity")},
        **{f"{kind}.{word}.path": name for kind, name in stored.items() for word in ("save", "load")},
    }  # fmt: skip


def public():
    """Every public callable of the package by name: functions, methods, and None for properties."""
    found = {}
    for name in velacamplix.__all__:
        item = getattr(velacamplix, name)
        if not inspect.isclass(item):
            found[name] = item
            continue
        for word, member in inspect.getmembers(item):
            if word.startswith("_") or word == "add_note" or not _is_ours(item, word):
                continue
            found[f"{name}.{word}"] = member if callable(member) else None
    return found


def _is_ours(kind, word):
    home = next((base for base in kind.__mro__ if word in vars(base)), kind)
    return home.__module__.startswith("velacamplix")


def call(name, member, made, known):
    """Call one of them, or read it."""
    owner, _, word = name.rpartition(".")
    if owner and member is None:
        return getattr(made[owner](), word)
    function = getattr(made[owner](), word) if owner else member
    given = []
    for parameter in inspect.signature(function).parameters.values():
        if parameter.default in (parameter.empty, ...) and parameter.kind is parameter.POSITIONAL_OR_KEYWORD:
            exact = f"{name}.{parameter.name}"
            if exact not in known and parameter.name not in known:
                raise KeyError(f"soak.arguments must tell what {name} is given as {parameter.name}")
            given.append(known[exact if exact in known else parameter.name])
    result = function(*given)
    if name == "Circuit.when":
        with result:
            pass
    elif isinstance(result, Iterator):
        list(result)


# Need Qiskit, pandas or matplotlib, whose own memory would hide ours; or are a part of another call.
OTHERS = {
    "Channel.depolarizing", "NoiseModel.readout", "Expression.value_from", "Parameter.value_from", "Circuit.to_matrix",
    "Circuit.from_cirq", "Circuit.to_cirq", "Circuit.from_pennylane", "Circuit.to_pennylane", "Observable.from_openfermion", "Observable.to_openfermion", "Circuit.from_qiskit", "Circuit.to_qiskit", "Counts.to_frame", "Result.to_frame", *(n for n in velacamplix.__all__ if n.startswith("plot_")),
}  # fmt: skip


# The same functions as those of StateVector, which acts at once; on as few qubits as a density matrix has here not all fit.
OTHERS |= {f"DensityMatrix.{word}" for kind in (GateMethods, ManyQubitMethods) for word in dir(kind) if not word.startswith("_")}


def more(i, folder):
    """Calls with what the ones above leave out."""
    stored = os.path.join(folder, "stored")
    run(Circuit(4).h(0).rx(0.1 * i, 3), storage=stored, shots=3, observables="Z0").distribution([0])
    os.unlink(stored)
    os.unlink(stored + ".journal")
    turn = 0.1 + 0.001 * i
    bound = TEMPLATE.bind([turn, 1.0])
    run(bound, schedule=f"canonical:{i % 58}", shots=3, seed=i)
    run(bound, initial=i, observables=["Z0", f"{turn}*X1"], fusion=bool(i % 2), progress=lambda progress: None)
    measured = Circuit(3, 2).h(0).measure(0, 0)
    with measured.when("c", 1):
        measured.x(1)
    noise = velacamplix.NoiseModel().after("h", velacamplix.Channel.amplitude_damping(0.2)).readout(0.1, 0.1)
    for method in ("exact", "trajectories"):
        run(Circuit(2).h(0).h(1), shots=20, seed=i, noise=noise, method=method, observables="Z0")
        run(measured, shots=5, seed=i, noise=noise, method=method)
        run([measured.copy().save_probabilities("p"), Circuit(1).h(0)], shots=3, seed=i, noise=noise, method=method)
    run(measured.measure(1, 1), shots=20, precision="single").counts.most_likely(2)
    StateVector(N_QUBITS, "single", threads=2).run(bound).counts(5)
    Circuit(5).h(i % 5).rx(turn, 0).to_matrix()
    DensityMatrix(4).h(i % 4).rx(turn, 1).cx(0, 1).pauli("XYZI").channel(velacamplix.Channel.depolarizing(turn, 2), [2, 0])
    bound.inverse().copy().compose(Circuit(1).h(0)).draw(width=80)
    Circuit.from_qasm(bound.to_qasm())
    Circuit.from_qasm3(TEMPLATE.to_qasm3())
    for wrong in (lambda: StateVector(60), lambda: Circuit(1).x(i + 1), lambda: run(TEMPLATE), lambda: Observable("A")):
        try:
            wrong()
        except (IndexError, MemoryError, ValueError):
            continue
        raise AssertionError("nothing was refused")


def resident():
    with open("/proc/self/statm") as file:
        return int(file.read().split()[1]) * os.sysconf("SC_PAGE_SIZE")


def measured():
    gc.collect()
    return {
        "bytes": resident(),
        "objects": sys.getallocatedblocks(),
        "threads": len(os.listdir("/proc/self/task")),
        "files": len(os.listdir("/proc/self/fd")),
    }


def main():
    members = {name: member for name, member in public().items() if name not in OTHERS}
    growth = []
    with tempfile.TemporaryDirectory() as folder:
        path = os.path.join(folder, "circuit.qasm")
        with open(path, "w") as file:
            file.write(QASM % (0, 0))
        before = None
        for i in range((1 + STRETCHES) * ROUNDS):
            made, known = makers(i), arguments(i, path)
            for name, member in members.items():
                call(name, member, made, known)
            more(i, folder)
            if (i + 1) % ROUNDS == 0:
                after = measured()
                if before is not None:
                    growth.append({kind: after[kind] - before[kind] for kind in after})
                before = after
    print(json.dumps(growth))


if __name__ == "__main__":
    main()
