"""Small pieces of English."""


def counted(count: int, noun: str) -> str:
    """Write a number with its noun.

    >>> counted(1, "qubit"), counted(2, "qubit")
    ('1 qubit', '2 qubits')
    """
    return f"{count} {noun}" + ("" if count == 1 else "s")
