"""Objects that are changed while a call uses them, by what the call itself asks: tricks, each in a process of its own.

Run as a program it carries every trick out in a child process and writes, as JSON, how each child ended and what it
told. `test_abuse.py` looks at that.
"""

import gc
import json
import os
import sys
import threading

import numpy as np

from velacamplix import Channel, Circuit, DensityMatrix, Instruction, Observable, StateVector, _core, run

CASES = {}


def case(function):
    CASES[function.__name__] = function
    return function


# What an argument can do to the state it is handed to

SMALL, LARGE = 3, 16


def grow(state):
    state.__init__(LARGE)


def shrink(state):
    state.__init__(2)


def release(state):
    state.release()


def pretend(state):
    state._n_qubits = LARGE


def forget(state):
    vars(state).clear()


ACTS = [grow, shrink, release, pretend, forget]


class Evil:
    """Does something when it is asked for its value, once."""

    def __init__(self, value, act):
        self.value, self.act = value, act

    def _told(self):
        act, self.act = self.act, lambda: None
        act()
        return self.value

    def __index__(self):
        return self._told()

    def __float__(self):
        return float(self._told())

    def __complex__(self):
        return complex(self._told())

    def __iter__(self):
        return iter(self._told())

    def __len__(self):
        return len(self._told())

    def __array__(self, dtype=None, copy=None):
        return np.array(self._told(), dtype=dtype)


# Calls whose argument is evil. It is valid for the state before (qubit 2 of SMALL) or for the one after (15 of LARGE);
# `index`, `number` and `values` make it. "first" and "last" tell which argument is asked.

CALLS = {
    "h": lambda s, e, q: s.h(e(q)),
    "x controlled": lambda s, e, q: s.x(0, controls=[1, e(q)]),
    "rx": lambda s, e, q: s.rx(e(0.5), q),
    "rz controlled": lambda s, e, q: s.rz(0.5, q, controls=e([0, 1])),
    "ph": lambda s, e, q: s.ph(e(0.5), q),
    "cnot": lambda s, e, q: s.cnot(e(0), q),
    "cnot turned": lambda s, e, q: s.cnot(q, e(0)),
    "ccnot": lambda s, e, q: s.ccnot(0, e(1), q),
    "swap": lambda s, e, q: s.swap(e(0), q),
    "iswap": lambda s, e, q: s.iswap(q, e(0)),
    "sqrtswap": lambda s, e, q: s.sqrtswap(e(0), q),
    "cswap": lambda s, e, q: s.cswap(0, e(1), q),
    "cu": lambda s, e, q: s.cu(0.1, 0.2, 0.3, e(0.4), 0, q),
    "rxx": lambda s, e, q: s.rxx(e(0.1), 0, q),
    "matrix": lambda s, e, q: s.matrix(e([[0, 1], [1, 0]]), q),
    "matrix on many": lambda s, e, q: s.matrix(np.eye(8)[::-1], [0, e(1), q]),
    "matrix controlled": lambda s, e, q: s.matrix([[0, 1], [1, 0]], 0, controls=e([q])),
    "probability": lambda s, e, q: s.probability(e(1), [0, q]),
    "distribution": lambda s, e, q: s.distribution([0, e(1), q]),
    "distribution_dict": lambda s, e, q: s.distribution_dict([0, q], e(0.1)),
    "sample": lambda s, e, q: s.sample(e(100), [0, q]),
    "sample qubits": lambda s, e, q: s.sample(100, [e(0), q]),
    "counts": lambda s, e, q: s.counts(e(100), [0, q]),
    "measure": lambda s, e, q: s.measure([e(0), q], collapse=True),
    "project": lambda s, e, q: s.project([0, q], e(0)),
    "project_then_reset": lambda s, e, q: s.project_then_reset([e(0), q], 0),
    "prepare": lambda s, e, q: s.prepare(e([0, 1]), q),
    "prepare qubits": lambda s, e, q: s.prepare([0, 0, 0, 1], [e(0), q]),
    "qram": lambda s, e, q: s.qram(e([[1.0, 2.0], [3.0, 4.0]]), 0, q),
    "qram qubits": lambda s, e, q: s.qram([[1.0, 2.0], [3.0, 4.0]], e(0), q),
    "binary_qram": lambda s, e, q: s.binary_qram(e([1, 0]), 0, q),
    "phase_oracle": lambda s, e, q: s.phase_oracle([e(1)], [0, q]),
    "expectation": lambda s, e, q: s.expectation([(e(0.5), "XZ", [0, q])]),
    "term_values": lambda s, e, q: s.term_values([(1.0, "XZ", e([0, q]))]),
    "estimate": lambda s, e, q: s.estimate([(1.0, "XZ", [0, q])], e(10)),
    "variance": lambda s, e, q: s.variance([(e(0.5), "XZ", [0, q])]),
    "overlap": lambda s, e, q: s.overlap(e(np.eye(2 ** (q + 1))[0])) if q < 5 else None,
    "overlap as it will be": lambda s, e, q: s.fidelity(e(large_basis_state(q))),
    "reduced": lambda s, e, q: s.reduced([e(0), q]),
    "entropy": lambda s, e, q: s.entropy([e(0), q]),
    "purity": lambda s, e, q: s.purity([e(0), q]),
    "bloch_vector": lambda s, e, q: s.bloch_vector(e(q)),
    "schmidt": lambda s, e, q: s.schmidt([e(0), q]),
    "schmidt vectors": lambda s, e, q: s.schmidt([e(0), q], True),
    "to_dict": lambda s, e, q: s.to_dict(e(0.1)),
    "set_state": lambda s, e, q: s.set_state(e(np.eye(2 ** (q + 1))[0]), order="big") if q < 5 else None,
    "set_state as it will be": lambda s, e, q: s.set_state(e(large_basis_state(q)), order="little"),
    "set_basis_state": lambda s, e, q: s.set_basis_state(e(1 << q)),
    "seed": lambda s, e, q: setattr(s, "seed", e(q)),
    "threads": lambda s, e, q: setattr(s, "threads", e(2)),
}


def large_basis_state(q):
    amplitudes = np.zeros(2 ** (q + 1))
    amplitudes[-1] = 1
    return amplitudes


def changed_by_an_argument(call, act):
    told = set()
    for qubit in (1, SMALL - 1, LARGE - 1):
        for precision in ("double", "single"):
            state = StateVector(SMALL, precision, threads=1, seed=1)
            evil = lambda value: Evil(value, lambda: act(state))  # noqa: E731
            try:
                call(state, evil, qubit)
            except (IndexError, ValueError, RuntimeError, TypeError, AttributeError) as error:
                told.add(type(error).__name__)
            else:
                told.add("fine")
            still_works(state)
    return sorted(told)


def still_works(state):
    """Unless it was destroyed on purpose, the object is in a proper state of norm 1."""
    if "_core" not in vars(state) or state._core is None:
        return
    state._n_qubits = len(state.array).bit_length() - 1
    assert abs(state.norm() - 1) < 1e-5, state.norm()
    state.h(0).cnot(0, 1).sample(3)
    # Whoever wrote over memory that was not his own is found now, or when the process ends.
    gc.collect()


for _name, _call in CALLS.items():
    for _act in ACTS:
        CASES[f"{_name}, {_act.__name__}"] = lambda call=_call, act=_act: changed_by_an_argument(call, act)


# The same with density matrices; one of 16 qubits would not fit

LARGE_MATRIX = 7


def grow_matrix(rho):
    rho.__init__(LARGE_MATRIX)


MATRIX_ACTS = [grow_matrix, shrink, release, pretend, forget]
DAMPED = Channel.amplitude_damping(0.3)
MATRIX_CALLS = {
    "gate": lambda r, e, q: r.x(e(q)),
    "angle": lambda r, e, q: r.rx(e(0.5), q),
    "control": lambda r, e, q: r.cx(e(0), q),
    "matrix": lambda r, e, q: r.matrix([[0, e(1)], [1, 0]], q),
    "matrix qubits": lambda r, e, q: r.matrix([[0, 1], [1, 0]], e(q), [0]),
    "channel": lambda r, e, q: r.channel(DAMPED, e(q)),
    "channel on two": lambda r, e, q: r.channel(DAMPED.tensor(DAMPED), [e(0), q]),
    "probability": lambda r, e, q: r.probability(e("0"), [q]),
    "distribution": lambda r, e, q: r.distribution([e(0), q]),
    "sample": lambda r, e, q: r.sample(e(5), [q]),
    "counts": lambda r, e, q: r.counts(e(5), [0, q]),
    "project": lambda r, e, q: r.project([e(0), q], "00"),
    "reset_qubits": lambda r, e, q: r.reset_qubits([e(0), q]),
    "expectation": lambda r, e, q: r.expectation([(e(1.0), "X", [q])]),
    "reduced": lambda r, e, q: r.reduced([e(0), q]),
    "entropy": lambda r, e, q: r.entropy([e(0), q]),
    "bloch_vector": lambda r, e, q: r.bloch_vector(e(q)),
    "set_state": lambda r, e, q: r.set_state(e(np.eye(2 ** (q + 1)) / 2 ** (q + 1))),
    "set_state of amplitudes": lambda r, e, q: r.set_state(e(large_basis_state(q)), order="big"),
    "set_basis_state": lambda r, e, q: r.set_basis_state(e(1 << q)),
    "fidelity": lambda r, e, q: r.fidelity(e(large_basis_state(q))),
    "overlap": lambda r, e, q: r.overlap(e(large_basis_state(q))),
    "seed": lambda r, e, q: setattr(r, "seed", e(q)),
    "threads": lambda r, e, q: setattr(r, "threads", e(2)),
}


def matrix_changed_by_an_argument(call, act):
    told = set()
    for qubit in (1, SMALL - 1, LARGE_MATRIX - 1):
        for precision in ("double", "single"):
            rho = DensityMatrix(SMALL, precision, threads=1, seed=1)
            evil = lambda value: Evil(value, lambda: act(rho))  # noqa: E731
            try:
                call(rho, evil, qubit)
            except (IndexError, ValueError, RuntimeError, TypeError, AttributeError) as error:
                told.add(type(error).__name__)
            else:
                told.add("fine")
            matrix_still_works(rho)
    return sorted(told)


def matrix_still_works(rho):
    if "_core" not in vars(rho) or rho._core is None:
        return
    rho._n_qubits = len(rho._core.view()).bit_length() // 2
    assert abs(rho.trace() - 1) < 1e-5, rho.trace()
    rho.h(0).cx(0, 1).channel(DAMPED, 1).sample(3)
    gc.collect()


for _name, _call in MATRIX_CALLS.items():
    CASES[f"matrix, {_name}"] = lambda call=_call: [matrix_changed_by_an_argument(call, act) for act in MATRIX_ACTS]


# Tricks of their own


def refused(action, *errors):
    """Return the text of the error that the action must end with."""
    try:
        result = action()
    except errors as error:
        return f"{type(error).__name__}: {error}"
    raise AssertionError(f"not refused: {result!r}")


@case
def a_state_that_says_it_has_more_qubits():
    class More(StateVector):
        n_qubits = property(lambda self: 20)

    state = More(3)
    state.h(2)
    assert abs(state.norm() - 1) < 1e-12
    told = [refused(lambda: run(Circuit(20).h(19), initial=state), ValueError)]
    assert run(Circuit(3).x(0), initial=state).state.n_qubits == 3
    run(Circuit(3).h(0).measure_all(), shots=10, initial=state)
    state.copy()
    return told


@case
def a_state_that_says_it_has_fewer_qubits():
    class Fewer(StateVector):
        n_qubits = property(lambda self: 1)

    return refused(lambda: run(Circuit(1).h(0), initial=Fewer(12)), ValueError)


@case
def a_circuit_that_says_it_has_fewer_qubits():
    class Fewer(Circuit):
        n_qubits = property(lambda self: self.said)
        said = 20

    circuit = Fewer(20).h(19).cx(0, 19)
    circuit.said = 2
    return refused(lambda: StateVector(2).run(circuit), IndexError), refused(
        lambda: run(circuit, shots=3, initial="00"), IndexError, ValueError
    )


@case
def a_circuit_with_instructions_of_its_own():
    wrong = [
        Instruction("CNOT", (0, 0)), Instruction("CNOT", (0,)), Instruction("H", ()), Instruction("H", (0, 1)),
        Instruction("RX", (0,)), Instruction("RX", (0,), (0.1, 0.2)), Instruction("H", (0,), (0.1,)),
        Instruction("X", (0,), (), (0,)), Instruction("X", (0,), (), (1, 1)), Instruction("CCNOT", (0, 1)),
        Instruction("SWAP", (1, 1)), Instruction("matrix", (0, 0), (1,) * 16), Instruction("matrix", (0,), (1, 0, 0)),
        Instruction("diagonal", (0, 1), (1, 1)), Instruction("diagonal", (0, 0), (1, 1, 1, 1)), Instruction("X", (7,)),
        Instruction("X", (0,), (), (7,)), Instruction("nothing", (0,)),
        Instruction("diagonal", (1,), (1, -1), (1,)),
    ]  # fmt: skip

    class Own(Circuit):
        step = None

        @property
        def _instructions(self):
            return super()._instructions if self.step is None else [self.step]

    told = []
    for step in wrong:
        circuit = Own(2).h(0)
        circuit.step = step
        told.append(refused(lambda circuit=circuit: StateVector(2).run(circuit), ValueError, IndexError, TypeError))
    return told


@case
def an_observable_on_more_qubits_than_it_says():
    class Lying(Observable):
        n_qubits = property(lambda self: 1)

    wide = Lying([(1.0, "XZ", [0, 40])])
    state = StateVector(3)
    return [
        refused(lambda: state.expectation(wide), RuntimeError),
        refused(lambda: state.term_values(wide), RuntimeError),
        refused(lambda: state.estimate(wide, 10), RuntimeError),
    ]


@case
def an_array_that_lies_about_itself():
    class Lying(np.ndarray):
        shape = property(lambda self: (8,))
        size = property(lambda self: 8)
        dtype = property(lambda self: np.dtype(complex))

    given = np.zeros(2, complex).view(Lying)
    state = StateVector(3)
    return [
        refused(lambda: state.statevector(order="little", out=given), ValueError, TypeError),
        refused(lambda: state.set_state(given, order="little"), ValueError, TypeError),
        refused(lambda: state.prepare(given, [0, 1, 2]), ValueError, TypeError),
    ]


@case
def a_text_that_lies_about_its_length():
    class Lying(str):
        def __len__(self):
            return 3

        def __getitem__(self, item):
            return "0" * 60

        def __iter__(self):
            return iter("000")

    state = StateVector(3)
    told = []
    for order in ("big", "little"):
        told.append(refused(lambda order=order: state.set_basis_state(Lying("+" * 40), order=order), ValueError, RuntimeError))
        told.append(refused(lambda order=order: run(Circuit(3), initial=Lying("1" * 40), initial_order=order), ValueError, RuntimeError))
    assert state.norm() == 1
    return told


@case
def a_state_that_is_set_up_again_keeps_its_views_alive():
    state = StateVector(12).x(0)
    view = state.array
    for n in (3, 12, 1):
        state.__init__(n)
        state.h(0)
    assert view[1] == 1 and len(view) == 4096
    refused(lambda: state.__init__(70), MemoryError)
    # What could not be set up anew is what it was.
    assert state.n_qubits == 1 and len(state.array) == 2
    state.h(0)
    refused(lambda: state.__init__(-1), ValueError)
    refused(lambda: state.__init__(2, "quadruple"), ValueError)
    state.h(0)
    return "fine"


@case
def a_progress_function_that_changes_what_runs():
    told = []
    for act in ACTS:
        state, circuit = StateVector(14, threads=2), Circuit(14)
        for layer in range(20):
            for qubit in range(14):
                circuit.rx(0.1 * layer, qubit).cx(qubit, (qubit + 1) % 14)
        done = []

        def hook(progress, state=state, act=act, done=done, circuit=circuit):
            if not done:
                done.append(act.__name__)
                circuit.h(0)
                act(state)

        try:
            state.run(circuit, progress=hook)
            told.append("fine")
        except RuntimeError as error:
            told.append(str(error))
        assert done == [act.__name__]
        still_works(state)
    return told


@case
def a_progress_function_that_finds_the_states_of_a_run():
    circuit = Circuit(12, 2)
    for qubit in range(12):
        circuit.h(qubit)
    circuit.measure(0, 0).h(0).measure(0, 1).h(0).reset(11).h(11)
    told = []
    for act in ACTS:

        def hook(progress, act=act):
            for found in gc.get_objects():
                if type(found) is StateVector and "_core" in vars(found):
                    try:
                        act(found)
                    except RuntimeError as error:
                        told.append(str(error))

        try:
            run(circuit, shots=200, seed=3, progress=hook)
        except (RuntimeError, IndexError, ValueError, AttributeError) as error:
            told.append(f"{type(error).__name__}: {error}")
    return sorted(set(told))


@case
def a_progress_function_that_changes_a_density_matrix():
    told = []
    for act in MATRIX_ACTS:
        for measures in (False, True):
            rho, circuit = DensityMatrix(7, threads=2), Circuit(7, 1)
            for layer in range(40):
                for qubit in range(7):
                    circuit.rx(0.1 * layer, qubit).cx(qubit, (qubit + 1) % 7).channel(DAMPED, qubit)
                if measures:
                    circuit.measure(0, 0)
                    with circuit.when(0, 1):
                        circuit.x(1)
            done = []

            def hook(progress, rho=rho, act=act, done=done):
                if not done:
                    done.append(act.__name__)
                    act(rho)

            try:
                rho.run(circuit, progress=hook)
                told.append("fine")
            except (RuntimeError, ValueError, AttributeError, IndexError) as error:
                told.append(str(error))
            assert done == [act.__name__]
            matrix_still_works(rho)
    return told


@case
def a_progress_function_that_finds_the_states_of_a_noisy_run():
    circuit = Circuit(6, 2)
    for qubit in range(6):
        circuit.h(qubit).channel(DAMPED, qubit)
    plain = circuit.copy()
    circuit.measure(0, 0).h(0)
    with circuit.when(0, 1):
        circuit.x(1)
    circuit.measure(1, 1)
    told = []
    for act in MATRIX_ACTS:

        def hook(progress, act=act):
            for found in gc.get_objects():
                if type(found) in (StateVector, DensityMatrix) and "_core" in vars(found):
                    try:
                        act(found)
                    except RuntimeError as error:
                        told.append(str(error))

        for one in (plain, circuit):
            for method in ("exact", "trajectories"):
                try:
                    run(one, shots=50, seed=3, method=method, progress=hook, initial="000000" if act is shrink else None)
                except (RuntimeError, IndexError, ValueError, AttributeError) as error:
                    told.append(f"{type(error).__name__}: {error}")
    return sorted(set(told))


@case
def arrays_that_are_resized_by_another_argument():
    state = StateVector(16).h(0)
    given, out = np.zeros(2**16, complex), np.zeros(2**16, complex)
    given[0] = 1

    class Order(str):
        def __eq__(self, other):
            given.resize(4, refcheck=False)
            out.resize(4, refcheck=False)
            return str.__eq__(self, other)

        __hash__ = str.__hash__

    told = []
    for use in (lambda: state.set_state(given, order=Order("big")), lambda: state.statevector(order=Order("big"), out=out)):
        try:
            use()
            told.append("fine")
        except (ValueError, TypeError, RuntimeError) as error:
            told.append(f"{type(error).__name__}: {error}")
    assert abs(state.norm() - 1) < 1e-12
    return told


@case
def arrays_that_are_resized_by_another_thread():
    # Large enough that the other thread gets its turn while one copy is being made.
    n = 20
    state = StateVector(n, threads=1)
    stop = threading.Event()
    basis = np.zeros(2**n, complex)
    basis[5] = 1
    held = [basis.copy(), basis.copy()]

    def resize():
        while not stop.is_set():
            for array in held:
                try:
                    array.resize(0, refcheck=False)
                    array.resize(2**n, refcheck=False)
                    array[5] = 1
                except ValueError:
                    pass

    worker = threading.Thread(target=resize)
    worker.start()
    try:
        for _ in range(30):
            for use in (
                lambda: _core_reset(state, held[0]),
                lambda: state.statevector(order="big", out=held[1]),
            ):
                try:
                    use()
                except (ValueError, RuntimeError, TypeError):
                    pass
    finally:
        stop.set()
        worker.join()
    return "fine"


def _core_reset(state, array):
    # NumPy, too, reads arrays without the interpreter's lock, when the norm is formed; that is not what is tried here.
    state._core.reset_from(array, True)


@case
def the_core_is_called_with_what_it_must_not_take():
    """The compiled half by itself, with what the Python half would never hand on."""
    told = {}
    for precision, kind in (("Double", np.complex128), ("Single", np.complex64)):
        core = getattr(_core, f"StateVector{precision}")(3)
        core.reset()
        data = np.full(4, 0.5, dtype=complex)
        terms = [(1.0, "XZ", [0, 3])]
        wide = _core.Observable([1.0], [1 << 3], [0], [0], 0.0, 4)
        program = getattr(_core, f"Program{precision}")(4)
        program.add([Instruction("H", (3,))], [0, 1, 2, 3])
        odd = np.zeros(8 * np.dtype(kind).itemsize + 1, np.uint8)[1:].view(kind)

        def gate(name, *qubits, by=(), on=(), core=core):
            core.apply(name, qubits, tuple(by), tuple(on))

        tries = {
            "x": lambda: gate("X", 3), "x 64": lambda: gate("X", 64), "x 70": lambda: gate("X", 2**32 - 1),
            "x 2**32": lambda: gate("X", 2**32), "x negative": lambda: gate("X", -1), "x of a text": lambda: gate("X", "0"),
            "x control": lambda: gate("X", 0, on=[3]), "x twice": lambda: gate("X", 0, on=[0]),
            "h twice": lambda: gate("H", 0, on=[1, 1]), "rx": lambda: gate("RX", 3, by=[0.5]),
            "rx without": lambda: gate("RX", 0), "rx of a text": lambda: gate("RX", 0, by=["0"]),
            "ph control": lambda: gate("PH", 0, by=[0.5], on=[9]), "rz": lambda: gate("RZ", 0, by=[0.1], on=[0]),
            "x on two": lambda: gate("X", 0, 1), "x by": lambda: gate("X", 0, by=[0.5]), "cnot on one": lambda: gate("CNOT", 0),
            "cnot": lambda: gate("CNOT", 0, 3), "cnot turned": lambda: gate("CNOT", 3, 0),
            "cnot twice": lambda: gate("CNOT", 1, 1), "cnot control": lambda: gate("CNOT", 0, 1, on=[2]),
            "csign": lambda: gate("CSIGN", 0, 77), "swap": lambda: gate("SWAP", 3, 0), "swap twice": lambda: gate("SWAP", 1, 1),
            "iswap": lambda: gate("ISWAP", 0, 3), "sqrtswap": lambda: gate("SQRTSWAP", 3, 1),
            "ccnot": lambda: gate("CCNOT", 0, 1, 3), "ccnot twice": lambda: gate("CCNOT", 0, 0, 1),
            "no gate": lambda: gate("", 0), "unknown gate": lambda: gate("x", 0), "no text": lambda: gate("\ud800", 0),
            "text": lambda: core.reset_to_str("0000"), "short text": lambda: core.reset_to_str("+"),
            "probability": lambda: core.probability(0, [3]), "probability 64": lambda: core.probability(1, [64]),
            "distribution": lambda: core.distribution([3]), "distribution twice": lambda: core.distribution([0] * 40),
            "sample": lambda: _core.sample(core, np.zeros(5, np.uint64), [3]),
            "measure": lambda: _core.measure(core, [3], True), "project": lambda: _core.project(core, [3], 0, True),
            "project twice": lambda: _core.project(core, [0, 0], 0, True),
            "matrix": lambda: _core.apply_matrix(core, np.eye(2, dtype=kind), [3], []),
            "matrix control": lambda: _core.apply_matrix(core, np.eye(2, dtype=kind), [0], [3]),
            "matrix twice": lambda: _core.apply_matrix(core, np.ones((4, 4), dtype=kind), [1, 1], []),
            "matrix on nothing": lambda: _core.apply_matrix(core, np.ones((1, 1), dtype=kind), [], []),
            "matrix of 64": lambda: _core.apply_matrix(core, np.zeros((0, 0), dtype=kind), list(range(32)), []),
            "matrix control twice": lambda: _core.apply_matrix(core, np.eye(2, dtype=kind)[::-1].copy(), [0], [0]),
            "prepare": lambda: _core.prepare(core, data, [0, 3]), "prepare twice": lambda: _core.prepare(core, data, [1, 1]),
            "prepare of 64": lambda: _core.prepare(core, data[:1], [0] * 64),
            "qram": lambda: _core.qram(core, data, [0, 3], 1), "qram twice": lambda: _core.qram(core, data, [0, 0], 1),
            "qram addresses": lambda: _core.qram(core, data, [0, 1], 3),
            "binary_qram": lambda: _core.binary_qram(core, np.zeros(2, np.uint64), [0, 3], 1),
            "binary_qram addresses": lambda: _core.binary_qram(core, np.zeros(8, np.uint64), [0, 1], 3),
            "phase_oracle": lambda: _core.phase_oracle(core, [1], [3]),
            "phase_oracle twice": lambda: _core.phase_oracle(core, [1], [0, 0]),
            "expectation": lambda: _core.expectation(core, wide), "term_values": lambda: _core.term_values(core, wide),
            "estimate": lambda: _core.estimate(core, terms, 5),
            "estimate twice": lambda: _core.estimate(core, [(1.0, "XX", [1, 1])], 5),
            "mapped": lambda: _core.mapped_distribution(core, 0.0, [0, 3]),
            "program": lambda: program.run(core),
            "reset_from": lambda: core.reset_from(np.zeros(4, kind)), "reset_from odd": lambda: core.reset_from(odd),
            "copy": lambda: _core.copy_amplitudes(core, np.zeros(4, kind), True),
            "copy odd": lambda: _core.copy_amplitudes(core, odd, True),
        }  # fmt: skip
        before = core.view().tobytes()
        for name, action in tries.items():
            told[f"{precision} {name}"] = refused(action, RuntimeError, ValueError, IndexError, TypeError, OverflowError)
            assert core.view().tobytes() == before, name
    return told


def carried_out(function):
    """Run a case in a child process; return its exit status and what it told, or what it raised."""
    reading, writing = os.pipe()
    child = os.fork()
    if child == 0:
        os.close(reading)
        status = 1
        try:
            told = function()
            status = 0
        except BaseException as error:
            told = f"{type(error).__name__}: {error}"
        with os.fdopen(writing, "w") as out:
            json.dump(told, out)
        os._exit(status)
    os.close(writing)
    with os.fdopen(reading) as answer:
        text = answer.read()
    status = os.waitstatus_to_exitcode(os.waitpid(child, 0)[1])
    return {"status": status, "told": json.loads(text) if text else None}


if __name__ == "__main__":
    json.dump({name: carried_out(function) for name, function in CASES.items()}, sys.stdout)
