"""The circuit: an ordered list of instructions with a method for each gate."""
