"""How things look: instructions as text and as pictures, small HTML; from plain values."""
