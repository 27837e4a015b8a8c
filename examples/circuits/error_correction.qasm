// Three-qubit code against bit flips, with an error and its correction.
//
// The syndrome is not measured in between: Toffoli gates act on it at once.
// The state cos(t/2) 0 + sin(t/2) 1 with sin(t/2)^2 = 0.8 survives a flip of data[1].
//
// Expect: c[0] (the decoded qubit) reads 1 with probability 0.8; c[1] and c[2],
// the two syndrome bits, both read 1 and so name data[1].
OPENQASM 2.0;
include "qelib1.inc";

qreg data[3];
qreg syndrome[2];
creg c[3];

// encode
ry(2.214297435588181) data[0];
cx data[0], data[1];
cx data[0], data[2];

barrier data;
x data[1]; // the error
barrier data;

// parities of neighbours
cx data[0], syndrome[0];
cx data[1], syndrome[0];
cx data[1], syndrome[1];
cx data[2], syndrome[1];

// 10 (first parity only): data[0]; 11: data[1]; 01: data[2]
x syndrome[1];
ccx syndrome[0], syndrome[1], data[0];
x syndrome[1];
ccx syndrome[0], syndrome[1], data[1];
x syndrome[0];
ccx syndrome[0], syndrome[1], data[2];
x syndrome[0];

// decode
cx data[0], data[2];
cx data[0], data[1];

measure data[0] -> c[0];
measure syndrome[0] -> c[1];
measure syndrome[1] -> c[2];
