"""How things look: text drawings of instructions and small HTML, from plain values."""
