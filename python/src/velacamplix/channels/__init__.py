"""What noise does to a few qubits: channels, their Kraus operators and matrices."""
