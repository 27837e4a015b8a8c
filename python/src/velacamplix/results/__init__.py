"""What runs answer: counts of outcomes, plans, seconds, shots as rows of bits."""
