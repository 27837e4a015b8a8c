// Teleportation of one qubit without feedback: the corrections that would
// follow the measurements are controlled gates before them.
//
// The message is cos(t/2) 0 + e^(i p) sin(t/2) 1 with sin(t/2)^2 = 0.3. The last
// gate turns its phase back, so that only the probability is left to see.
//
// Expect: c[2] reads 1 with probability 0.3, whatever c[0] and c[1] read; these
// are independent and even.
OPENQASM 2.0;
include "qelib1.inc";

qreg q[3];
creg c[3];

// the message in q[0]
u3(1.1592794807274085, 0.4, 0) q[0];

// a shared pair in q[1], q[2]
h q[1];
cx q[1], q[2];

barrier q;

// the Bell basis of q[0], q[1]
cx q[0], q[1];
h q[0];

// corrections of q[2]
cx q[1], q[2];
cz q[0], q[2];

u1(-0.4) q[2];
measure q -> c;
