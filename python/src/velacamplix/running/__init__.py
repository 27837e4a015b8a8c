"""A circuit from its first instruction to its result: `run`, branches where it measures, the result."""
