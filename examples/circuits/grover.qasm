// Grover's search for the number 22 among 32, in four rounds.
//
// d holds the number (d[0] is the lowest bit), w is room for carrying "all of
// these are 1" from one Toffoli gate to the next and ends as it began, in 0.
//
// Expect: c reads 22 (10110) with probability sin(9 asin(1/sqrt(32)))^2 = 0.9992;
// each other number comes with probability 0.000026.
OPENQASM 2.0;
include "qelib1.inc";

// Changes the sign where all of a, b, c, d, e are 1.
gate sign_of_all a, b, c, d, e, w0, w1, w2
{
  ccx a, b, w0;
  ccx c, w0, w1;
  ccx d, w1, w2;
  cz w2, e;
  ccx d, w1, w2;
  ccx c, w0, w1;
  ccx a, b, w0;
}

// Changes the sign of 22 = 10110: the bits that are 0 there are flipped around it.
gate oracle a, b, c, d, e, w0, w1, w2
{
  x a; x d;
  sign_of_all a, b, c, d, e, w0, w1, w2;
  x a; x d;
}

// Reflects every amplitude about the mean of all.
gate diffusion a, b, c, d, e, w0, w1, w2
{
  h a; h b; h c; h d; h e;
  x a; x b; x c; x d; x e;
  sign_of_all a, b, c, d, e, w0, w1, w2;
  x a; x b; x c; x d; x e;
  h a; h b; h c; h d; h e;
}

qreg d[5];
qreg w[3];
creg c[5];

h d;

oracle d[0], d[1], d[2], d[3], d[4], w[0], w[1], w[2];
diffusion d[0], d[1], d[2], d[3], d[4], w[0], w[1], w[2];

oracle d[0], d[1], d[2], d[3], d[4], w[0], w[1], w[2];
diffusion d[0], d[1], d[2], d[3], d[4], w[0], w[1], w[2];

oracle d[0], d[1], d[2], d[3], d[4], w[0], w[1], w[2];
diffusion d[0], d[1], d[2], d[3], d[4], w[0], w[1], w[2];

oracle d[0], d[1], d[2], d[3], d[4], w[0], w[1], w[2];
diffusion d[0], d[1], d[2], d[3], d[4], w[0], w[1], w[2];

measure d -> c;
