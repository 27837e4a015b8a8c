// Phase estimation: the gate u1(2 pi 19/64) has the eigenvalue exp(2 pi i 19/64)
// on 1. Six counting qubits are enough to read the fraction exactly.
//
// Expect: c reads 19 (010011) with probability 1.
OPENQASM 2.0;
include "qelib1.inc";

qreg count[6];
qreg eigen[1];
creg c[6];

x eigen[0];
h count;

// the gate, 1, 2, 4, ... times
cu1(2*pi*19/64) count[0], eigen[0];
cu1(2*pi*38/64) count[1], eigen[0];
cu1(2*pi*76/64) count[2], eigen[0];
cu1(2*pi*152/64) count[3], eigen[0];
cu1(2*pi*304/64) count[4], eigen[0];
cu1(2*pi*608/64) count[5], eigen[0];

// the inverse Fourier transform
swap count[0], count[5];
swap count[1], count[4];
swap count[2], count[3];
h count[0];
cu1(-pi/2) count[0], count[1];
h count[1];
cu1(-pi/4) count[0], count[2];
cu1(-pi/2) count[1], count[2];
h count[2];
cu1(-pi/8) count[0], count[3];
cu1(-pi/4) count[1], count[3];
cu1(-pi/2) count[2], count[3];
h count[3];
cu1(-pi/16) count[0], count[4];
cu1(-pi/8) count[1], count[4];
cu1(-pi/4) count[2], count[4];
cu1(-pi/2) count[3], count[4];
h count[4];
cu1(-pi/32) count[0], count[5];
cu1(-pi/16) count[1], count[5];
cu1(-pi/8) count[2], count[5];
cu1(-pi/4) count[3], count[5];
cu1(-pi/2) count[4], count[5];
h count[5];

measure count -> c;
