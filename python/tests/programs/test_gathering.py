"""Operations that commute come together, and nothing else changes its place."""

import numpy as np
import pytest

from velacamplix import Instruction, StateVector
from velacamplix.core import extension
from velacamplix.programs.gathering import gathered


def order(steps, n_qubits):
    return [steps.index(step) for step in gathered(steps, n_qubits)]


def test_what_shares_a_qubit_keeps_its_order():
    steps = [Instruction("RX", (q,), (0.1 * i,)) for i, q in enumerate([0, 9, 10, 11, 12, 13, 14, 0, 9, 14])]
    # A pass has room for five of the qubits above the lowest five: 14 begins the next, and its second gate waits for
    # it.
    assert order(steps, 15) == [0, 1, 2, 3, 4, 5, 7, 8, 6, 9]


def test_controls_and_diagonals_pass_each_other():
    high = [Instruction("H", (q,)) for q in range(9, 15)]  # the last finds no room
    free = [Instruction("RZ", (13,), (0.5,)), Instruction("CNOT", (12, 3)), Instruction("RX", (9,), (0.25,), (1,))]
    bound = [Instruction("CNOT", (14, 2)), Instruction("RZ", (14,), (0.5,)), Instruction("T", (2,))]
    assert order([*high, *free, *bound], 15) == [0, 1, 2, 3, 4, 6, 7, 8, 5, 9, 10, 11]
    both = [
        Instruction("CNOT", (14, 2)),
        Instruction("RZ", (14,), (0.5,)),
        Instruction("diagonal", (14, 3), (1, 1, 1j, 1)),
    ]
    assert order([*high[:5], *both], 15) == [0, 1, 2, 3, 4, 5, 6, 7]


def test_one_that_mixes_more_than_a_pass_holds_comes_through():
    wide = Instruction("matrix", tuple(range(12)), ())
    assert gathered([wide, Instruction("H", (0,))], 14) == [wide, Instruction("H", (0,))]


@pytest.mark.parametrize("seed", range(5))
def test_the_product_is_the_same(seed):
    rng = np.random.default_rng(seed)
    steps = []
    for _ in range(300):
        a, b, c = rng.permutation(14)[:3].tolist()
        steps.append(
            [
                Instruction("H", (a,)), Instruction("CNOT", (a, b)), Instruction("RX", (a,), (0.7,), (b,)),
                Instruction("SWAP", (a, b)), Instruction("CCNOT", (a, b, c)),
                Instruction("diagonal", (a, b), (1, 1j, -1, 1)),
                Instruction("RXX", (a, b), (0.4,)), Instruction("CSIGN", (a, b)),
                Instruction("PH", (a,), (0.3,), (b, c)),
                Instruction("matrix", (b, a), tuple(np.eye(4)[[0, 2, 3, 1]].ravel().tolist())),
            ][rng.integers(10)]
        )  # fmt: skip
    again = gathered(steps, 14)
    assert sorted(map(str, again)) == sorted(map(str, steps)) and again != steps
    found = []
    for listed in (steps, again):
        program = extension.ProgramDouble(14)
        program.add(listed, range(14))
        state = StateVector(14)
        state.ry(0.3, list(range(14)))
        program.run(state._core)
        found.append(state.array.copy())
    assert np.abs(found[0] - found[1]).max() < 1e-14
