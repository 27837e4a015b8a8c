"""Noise models: which channels stand beside which gates, and circuits with these channels in them."""
