"""Sums of Pauli strings, and the texts that say them."""
