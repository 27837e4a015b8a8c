"""States in files: parts that are read, taken through the gates of a stage, and written again."""
