"""Arguments, arrays and words: checks that every room needs, and that know nothing of circuits."""
