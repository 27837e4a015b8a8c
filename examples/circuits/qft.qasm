// Quantum Fourier transform of 8 qubits, applied to a state of period 8.
//
// The input is the equal sum of 1, 9, 17, ..., 249 (q[0] is the lowest bit).
// The transform turns period 8 into multiples of 256 / 8; the offset 1 only
// shows in the phases.
//
// Expect: c reads 0, 32, 64, 96, 128, 160, 192 or 224, each with probability 1/8.
OPENQASM 2.0;
include "qelib1.inc";

qreg q[8];
creg c[8];

// the periodic state
x q[0];
h q[3];
h q[4];
h q[5];
h q[6];
h q[7];

// the transform, from the highest bit down
h q[7];
cu1(pi/2) q[6], q[7];
cu1(pi/4) q[5], q[7];
cu1(pi/8) q[4], q[7];
cu1(pi/16) q[3], q[7];
cu1(pi/32) q[2], q[7];
cu1(pi/64) q[1], q[7];
cu1(pi/128) q[0], q[7];
h q[6];
cu1(pi/2) q[5], q[6];
cu1(pi/4) q[4], q[6];
cu1(pi/8) q[3], q[6];
cu1(pi/16) q[2], q[6];
cu1(pi/32) q[1], q[6];
cu1(pi/64) q[0], q[6];
h q[5];
cu1(pi/2) q[4], q[5];
cu1(pi/4) q[3], q[5];
cu1(pi/8) q[2], q[5];
cu1(pi/16) q[1], q[5];
cu1(pi/32) q[0], q[5];
h q[4];
cu1(pi/2) q[3], q[4];
cu1(pi/4) q[2], q[4];
cu1(pi/8) q[1], q[4];
cu1(pi/16) q[0], q[4];
h q[3];
cu1(pi/2) q[2], q[3];
cu1(pi/4) q[1], q[3];
cu1(pi/8) q[0], q[3];
h q[2];
cu1(pi/2) q[1], q[2];
cu1(pi/4) q[0], q[2];
h q[1];
cu1(pi/2) q[0], q[1];
h q[0];

// its result comes with the bits in reverse
swap q[0], q[7];
swap q[1], q[6];
swap q[2], q[5];
swap q[3], q[4];

measure q -> c;
