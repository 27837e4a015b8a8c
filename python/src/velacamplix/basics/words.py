"""Small pieces of English."""


def counted(count: int, noun: str) -> str:
    """Write a number with its noun.

    >>> counted(1, "qubit"), counted(2, "qubit")
    ('1 qubit', '2 qubits')
    """
    return f"{count} {noun}" + ("" if count == 1 else "s")


def bit_string(number: int, length: int) -> str:
    """Write an outcome of `length` qubits, most significant bit first.

    >>> bit_string(5, 4)
    '0101'
    """
    return format(number, f"0{length}b") if length else ""


def shortened(text: str, longest: int = 200) -> str:
    """Return a text, or its beginning if it is too long for a message."""
    return text if len(text) <= longest else text[: longest - 3] + "..."
