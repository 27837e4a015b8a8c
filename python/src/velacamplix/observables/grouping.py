"""Which terms can be measured together, and how."""

from __future__ import annotations

from collections.abc import Sequence

from ..instructions.instruction import Instruction
from .terms import Term, mask, of_masks

# What turns the eigenstates of a letter into those of Z.
_TO_Z = {"X": ("H",), "Y": ("sdg", "H"), "Z": ()}


def commuting(terms: Sequence[Term]) -> list[tuple[list[int], str, tuple[int, ...]]]:
    """Return places of terms that have the same letter on every qubit they share, with the group's letters and qubits.

    Terms on many qubits choose first, each the first group that it fits. In a group, and among groups by their first
    term, they stand in the order given.

    >>> commuting([Term(1.0, "Z", (0,)), Term(1.0, "XX", (0, 1)), Term(1.0, "Z", (2,))])
    [([0], 'Z', (0,)), ([1, 2], 'XXZ', (0, 1, 2))]
    """
    groups: list[tuple[list[int], int, int]] = []
    for place in sorted(range(len(terms)), key=lambda place: -len(terms[place].qubits)):
        flips, signs = mask(terms[place], "XY"), mask(terms[place], "YZ")
        for number, (members, all_flips, all_signs) in enumerate(groups):
            shared = (flips | signs) & (all_flips | all_signs)
            if not ((flips ^ all_flips) | (signs ^ all_signs)) & shared:
                members.append(place)
                groups[number] = members, all_flips | flips, all_signs | signs
                break
        else:
            groups.append(([place], flips, signs))
    return sorted((sorted(members), *of_masks(flips, signs)) for members, flips, signs in groups)


def turned_to_z(letters: str, qubits: Sequence[int]) -> tuple[Instruction, ...]:
    """Return the gates after which measuring Z on each of the qubits measures its letter.

    >>> print(*turned_to_z("XYZ", (0, 3, 4)), sep=", ")
    H 0, sdg 3, H 3
    """
    return tuple(Instruction(name, (qubit,)) for letter, qubit in zip(letters, qubits) for name in _TO_Z[letter])
