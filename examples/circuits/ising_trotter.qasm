// Transverse-field Ising chain of 10 spins after a quench: time 1 in five
// second-order Trotter steps.
//
// H = - sum Z_i Z_(i+1) - 0.7 sum X_i, open ends, started with all spins up (0).
// One step of dt = 0.2 is exp(-i dt/2 H_x) exp(-i dt H_zz) exp(-i dt/2 H_x).
//
// Expect: c reads 0 with probability 0.265635; the mean of Z over all spins is
// 0.660860 (0.643088 without the error of the steps).
OPENQASM 2.0;
include "qelib1.inc";

// exp(i angle Z Z)
gate bond(angle) a, b
{
  cx a, b;
  rz(-2*angle) b;
  cx a, b;
}

// exp(i angle X)
gate field(angle) a
{
  rx(-2*angle) a;
}

qreg q[10];
creg c[10];

// step 1
field(0.7*0.2/2) q;
bond(0.2) q[0], q[1];
bond(0.2) q[2], q[3];
bond(0.2) q[4], q[5];
bond(0.2) q[6], q[7];
bond(0.2) q[8], q[9];
bond(0.2) q[1], q[2];
bond(0.2) q[3], q[4];
bond(0.2) q[5], q[6];
bond(0.2) q[7], q[8];
field(0.7*0.2/2) q;

// step 2
field(0.7*0.2/2) q;
bond(0.2) q[0], q[1];
bond(0.2) q[2], q[3];
bond(0.2) q[4], q[5];
bond(0.2) q[6], q[7];
bond(0.2) q[8], q[9];
bond(0.2) q[1], q[2];
bond(0.2) q[3], q[4];
bond(0.2) q[5], q[6];
bond(0.2) q[7], q[8];
field(0.7*0.2/2) q;

// step 3
field(0.7*0.2/2) q;
bond(0.2) q[0], q[1];
bond(0.2) q[2], q[3];
bond(0.2) q[4], q[5];
bond(0.2) q[6], q[7];
bond(0.2) q[8], q[9];
bond(0.2) q[1], q[2];
bond(0.2) q[3], q[4];
bond(0.2) q[5], q[6];
bond(0.2) q[7], q[8];
field(0.7*0.2/2) q;

// step 4
field(0.7*0.2/2) q;
bond(0.2) q[0], q[1];
bond(0.2) q[2], q[3];
bond(0.2) q[4], q[5];
bond(0.2) q[6], q[7];
bond(0.2) q[8], q[9];
bond(0.2) q[1], q[2];
bond(0.2) q[3], q[4];
bond(0.2) q[5], q[6];
bond(0.2) q[7], q[8];
field(0.7*0.2/2) q;

// step 5
field(0.7*0.2/2) q;
bond(0.2) q[0], q[1];
bond(0.2) q[2], q[3];
bond(0.2) q[4], q[5];
bond(0.2) q[6], q[7];
bond(0.2) q[8], q[9];
bond(0.2) q[1], q[2];
bond(0.2) q[3], q[4];
bond(0.2) q[5], q[6];
bond(0.2) q[7], q[8];
field(0.7*0.2/2) q;

measure q -> c;
