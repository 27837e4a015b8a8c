"""From instructions to programs of the core, kept with their circuit, run with progress and Ctrl-C."""
