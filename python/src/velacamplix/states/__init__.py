"""The state vector: gates, readout, shots, expectation values, data loading, exports, copies."""
