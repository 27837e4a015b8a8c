"""What the machine has: threads, memory, and whether something fits."""
