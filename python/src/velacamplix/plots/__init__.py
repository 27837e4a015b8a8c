"""Pictures of counts, probabilities and states, by Matplotlib."""
