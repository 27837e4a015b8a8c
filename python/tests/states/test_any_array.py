"""Arrays of any address, stride, byte order and writability, for every method that takes or fills one."""

import numpy as np
import pytest
from full_matrices import random_state

from velacamplix import Circuit, StateVector, run


def at_offset(values, offset):
    """The same numbers, `offset` bytes behind a 64-byte boundary."""
    memory = np.zeros(values.nbytes + offset + 64, np.uint8)
    start = -memory.ctypes.data % 64 + offset
    placed = memory[start : start + values.nbytes].view(values.dtype).reshape(values.shape)
    placed[...] = values
    return placed


def locked(values):
    copy = values.copy()
    copy.flags.writeable = False
    return copy


def spread(values):
    wide = np.full([3 * length for length in values.shape], 7, dtype=values.dtype)
    wide[(slice(1, None, 3),) * values.ndim] = values
    return wide[(slice(1, None, 3),) * values.ndim]


def backwards(values):
    turned = (slice(None, None, -1),) * values.ndim
    return values[turned].copy()[turned]


LAYOUTS = {
    # Half an amplitude off: NumPy calls both aligned.
    "at half an amplitude": lambda values: at_offset(values, values.dtype.alignment),
    "at half an amplitude, locked": lambda values: locked_view(at_offset(values, values.dtype.alignment)),
    "at an odd address": lambda values: at_offset(values, 1),
    "locked": locked,
    "with gaps": spread,
    "with gaps at odd addresses": lambda values: at_offset(np.stack([values, values]), 3)[1],
    "backwards": backwards,
    "in the other byte order": lambda values: values.astype(values.dtype.newbyteorder()),
    "by columns": lambda values: np.asfortranarray(values),
    "a field of a record": lambda values: field(values),
    "longer numbers": lambda values: values.astype(np.result_type(values, np.longdouble))
    if values.dtype.kind in "fc"
    else values,
}


def locked_view(values):
    values.flags.writeable = False
    return values


def field(values):
    records = np.zeros(values.shape, dtype=[("flag", "u1"), ("value", values.dtype)])
    records["value"] = values
    return records["value"]


@pytest.fixture(params=sorted(LAYOUTS))
def layout(request):
    return LAYOUTS[request.param]


def amplitudes(n, precision):
    return random_state(n, seed=n).astype({"double": np.complex128, "single": np.complex64}[precision])


def placed(layout, values):
    """The values in that layout, which must be the same values."""
    array = layout(values)
    assert np.array_equal(array, values)
    return array


# 18 qubits are shared among threads; 3 and 9 take different ways.
@pytest.mark.parametrize("n", [3, 9, 18])
@pytest.mark.parametrize("order", ["big", "little"])
def test_setting_a_state(n, order, layout, precision):
    values = amplitudes(n, precision)
    expected = StateVector(n, precision, threads=2).set_state(values, order=order)
    array = placed(layout, values)
    before = array.tobytes()
    assert StateVector(n, precision, threads=2).set_state(array, order=order).array.tobytes() == expected.array.tobytes()
    assert array.tobytes() == before
    started = run(Circuit(n), initial=array, initial_order=order, precision=precision)
    assert started.state.array.tobytes() == expected.array.tobytes()


FILLED = {name: layout for name, layout in LAYOUTS.items() if "locked" not in name and name != "longer numbers"}


# 20 qubits in double precision and 21 in single are written past the caches.
@pytest.mark.parametrize("n", [3, 9, 21])
@pytest.mark.parametrize("order", ["big", "little"])
@pytest.mark.parametrize("name", sorted(FILLED))
def test_filling_an_array(n, order, name, precision):
    values = amplitudes(n, precision)
    state = StateVector(n, precision, threads=2).set_state(values, order="little")
    expected = state.statevector(order=order)
    out = FILLED[name](np.zeros_like(values))
    assert state.statevector(order=order, out=out) is out
    assert np.array_equal(out, expected)


def test_what_lies_between_the_entries_of_a_filled_array_stays():
    wide = np.full((8, 3), 7, dtype=complex)
    state = StateVector(3).x(1)
    state.statevector(order="big", out=wide[:, 1])
    assert wide[:, 1].tolist() == [0, 0, 1, 0, 0, 0, 0, 0]
    assert (wide[:, [0, 2]] == 7).all()


def test_an_array_that_must_not_be_written_is_not_filled():
    for out in (locked(np.zeros(8, complex)), np.broadcast_to(np.zeros(1, complex), (8,))):
        with pytest.raises(ValueError, match="out must be a writable array .* locked against writing"):
            StateVector(3).statevector(order="little", out=out)


def test_a_file_with_a_header(tmp_path):
    path = tmp_path / "amplitudes"
    values = random_state(6, seed=1)
    path.write_bytes(b"8 bytes." + values.tobytes())
    mapped = np.memmap(path, dtype=complex, mode="r+", offset=8, shape=(64,))
    state = StateVector(6).set_state(mapped, order="big")
    assert np.array_equal(state.statevector(order="big"), values)
    state.x(0).statevector(order="big", out=mapped)
    mapped.flush()
    assert path.read_bytes() == b"8 bytes." + np.roll(values, 32).tobytes()


@pytest.mark.parametrize("order", ["big", "little"])
def test_preparing(order, layout, precision):
    values = random_state(3, seed=2)
    expected = StateVector(5, precision).h(1).prepare(values, [3, 0, 4], order)
    state = StateVector(5, precision).h(1).prepare(placed(layout, values), [3, 0, 4], order)
    assert state.array.tobytes() == expected.array.tobytes()


@pytest.mark.parametrize("order", ["big", "little"])
def test_loading_tables(order, layout, precision):
    weights = np.random.default_rng(1).random((4, 2))
    expected = StateVector(5, precision).h(0).h(3).qram(weights, [3, 0], 1, order)
    state = StateVector(5, precision).h(0).h(3).qram(placed(layout, weights), [3, 0], 1, order)
    assert state.array.tobytes() == expected.array.tobytes()
    values = np.array([2, 0, 3, 1], dtype=np.uint64)
    expected = StateVector(5, precision).h(0).h(3).binary_qram(values, [3, 0], [1, 4], order)
    state = StateVector(5, precision).h(0).h(3).binary_qram(placed(layout, values), [3, 0], [1, 4], order)
    assert state.array.tobytes() == expected.array.tobytes()


def test_matrices_and_diagonals(layout, precision):
    generator = np.random.default_rng(3)
    matrix = np.linalg.qr(generator.normal(size=(8, 8)) + 1j * generator.normal(size=(8, 8)))[0]
    phases = np.exp(1j * generator.normal(size=8))
    expected = StateVector(4, precision).h(0).matrix(matrix, [2, 0, 1], 3)
    assert StateVector(4, precision).h(0).matrix(placed(layout, matrix), [2, 0, 1], 3).array.tobytes() == (
        expected.array.tobytes()
    )
    circuit = Circuit(4).h(0).matrix(matrix, [2, 0, 1]).diagonal(phases, [3, 1, 0])
    other = Circuit(4).h(0).matrix(placed(layout, matrix), [2, 0, 1]).diagonal(placed(layout, phases), [3, 1, 0])
    assert circuit == other
    assert run(other, precision=precision).state.array.tobytes() == run(circuit, precision=precision).state.array.tobytes()


def test_lists_of_numbers(layout):
    state = StateVector(5, seed=1).set_state(random_state(5, 1), order="little")
    qubits, marked = np.array([3, 0, 4]), np.array([5, 2], dtype=np.uint16)
    assert np.array_equal(state.distribution(placed(layout, qubits)), state.distribution([3, 0, 4]))
    expected = state.copy().phase_oracle([5, 2], [3, 0, 4])
    assert state.copy().phase_oracle(placed(layout, marked), qubits).array.tobytes() == expected.array.tobytes()
    assert state.copy().x(1, controls=placed(layout, qubits)).array.tobytes() == (
        state.copy().x(1, controls=[3, 0, 4]).array.tobytes()
    )


def test_values_of_parameters(layout):
    from velacamplix import Parameter

    a, b = Parameter("a"), Parameter("b")
    circuit = Circuit(2).rx(a, 0).ry(b, 1)
    values = np.array([0.25, 1.5])
    assert circuit.bind(placed(layout, values)) == circuit.bind([0.25, 1.5])
