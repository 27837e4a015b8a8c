// Bernstein-Vazirani: finds a hidden string of 15 bits with one question.
//
// The box answers with the parity of those input bits that are set in the
// string 110100101101011 (c[14] leftmost); answer is the qubit it flips.
//
// Expect: c reads 110100101101011 = 26987 with probability 1.
OPENQASM 2.0;
include "qelib1.inc";

qreg q[15];
qreg answer[1];
creg c[15];

x answer[0];
h answer[0];
h q;

barrier q, answer[0];
cx q[0], answer[0];
cx q[1], answer[0];
cx q[3], answer[0];
cx q[5], answer[0];
cx q[6], answer[0];
cx q[8], answer[0];
cx q[11], answer[0];
cx q[13], answer[0];
cx q[14], answer[0];
barrier q, answer[0];

h q;
measure q -> c;
