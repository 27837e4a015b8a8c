// Ripple-carry adder of two 9-bit numbers with a single spare qubit: 347 + 218.
//
// Each step leaves the carry of one digit in the next bit of a; the way back
// restores a and leaves the sum in b. Only X, CNOT and Toffoli gates: the state
// is one basis state all along.
//
// Expect: sum reads 565 = 1000110101 with probability 1.
OPENQASM 2.0;
include "qelib1.inc";

gate majority c, b, a
{
  cx a, b;
  cx a, c;
  ccx c, b, a;
}

gate unmajority c, b, a
{
  ccx c, b, a;
  cx a, c;
  cx c, b;
}

qreg carry_in[1];
qreg a[9];
qreg b[9];
qreg carry_out[1];
creg sum[10];

// a = 347
x a[0];
x a[1];
x a[3];
x a[4];
x a[6];
x a[8];
// b = 218
x b[1];
x b[3];
x b[4];
x b[6];
x b[7];

majority carry_in[0], b[0], a[0];
majority a[0], b[1], a[1];
majority a[1], b[2], a[2];
majority a[2], b[3], a[3];
majority a[3], b[4], a[4];
majority a[4], b[5], a[5];
majority a[5], b[6], a[6];
majority a[6], b[7], a[7];
majority a[7], b[8], a[8];
cx a[8], carry_out[0];
unmajority a[7], b[8], a[8];
unmajority a[6], b[7], a[7];
unmajority a[5], b[6], a[6];
unmajority a[4], b[5], a[5];
unmajority a[3], b[4], a[4];
unmajority a[2], b[3], a[3];
unmajority a[1], b[2], a[2];
unmajority a[0], b[1], a[1];
unmajority carry_in[0], b[0], a[0];

measure b[0] -> sum[0];
measure b[1] -> sum[1];
measure b[2] -> sum[2];
measure b[3] -> sum[3];
measure b[4] -> sum[4];
measure b[5] -> sum[5];
measure b[6] -> sum[6];
measure b[7] -> sum[7];
measure b[8] -> sum[8];
measure carry_out[0] -> sum[9];
