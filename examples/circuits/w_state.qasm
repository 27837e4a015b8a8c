// W state of 6 qubits: exactly one of them is 1, each with the same amplitude.
//
// The 1 starts in q[0]. Step i passes it on from q[i] with the probability that
// leaves 1/6 behind: cos(angle/2)^2 = 1/(6 - i).
//
// Expect: c reads 1, 2, 4, 8, 16 or 32, each with probability 1/6.
OPENQASM 2.0;
include "qelib1.inc";

// Moves the 1 of a to b, in part.
gate pass(angle) a, b
{
  cry(angle) a, b;
  cx b, a;
}

qreg q[6];
creg c[6];

x q[0];
pass(2.3005239830218631) q[0], q[1];
pass(2.2142974355881808) q[1], q[2];
pass(2.0943951023931957) q[2], q[3];
pass(1.9106332362490186) q[3], q[4];
pass(1.5707963267948966) q[4], q[5];

measure q -> c;
