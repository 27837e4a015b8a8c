"""Derivatives of expectation values by a circuit's parameters: by the adjoint method, and by shifted angles."""
