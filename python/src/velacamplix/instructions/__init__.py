"""What a circuit is made of: gates, instructions, definitions, parameters, and how gates become those of the library."""
