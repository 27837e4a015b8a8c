// Hardware-efficient ansatz on 12 qubits: three layers of RY and RZ on every
// qubit, each followed by CZ around a ring, and a last row of rotations. The
// angles were drawn at random from (-pi, pi).
//
// Expect: the likeliest outcome is 1919 (011101111111, c[11] leftmost) with
// probability 0.038864; the mean number of ones in c is 6.915582.
OPENQASM 2.0;
include "qelib1.inc";

qreg q[12];
creg c[12];

// layer 1
ry(-0.1598) q[0];
ry(0.9894) q[1];
ry(1.0456) q[2];
ry(-2.2456) q[3];
ry(-3.0734) q[4];
ry(-0.7869) q[5];
ry(-1.4197) q[6];
ry(1.9500) q[7];
ry(1.1975) q[8];
ry(0.6375) q[9];
ry(0.3656) q[10];
ry(1.0136) q[11];
rz(-2.2286) q[0];
rz(-0.3766) q[1];
rz(-2.1220) q[2];
rz(2.5508) q[3];
rz(-2.7720) q[4];
rz(2.0032) q[5];
rz(-2.6728) q[6];
rz(1.1746) q[7];
rz(-1.0242) q[8];
rz(-0.5993) q[9];
rz(2.1514) q[10];
rz(-3.0247) q[11];
cz q[0], q[1];
cz q[1], q[2];
cz q[2], q[3];
cz q[3], q[4];
cz q[4], q[5];
cz q[5], q[6];
cz q[6], q[7];
cz q[7], q[8];
cz q[8], q[9];
cz q[9], q[10];
cz q[10], q[11];
cz q[11], q[0];

// layer 2
ry(-2.7597) q[0];
ry(2.6077) q[1];
ry(0.0561) q[2];
ry(-2.5700) q[3];
ry(3.0608) q[4];
ry(2.8068) q[5];
ry(-2.4346) q[6];
ry(-0.4825) q[7];
ry(-2.2929) q[8];
ry(-1.1778) q[9];
ry(0.7631) q[10];
ry(-2.1141) q[11];
rz(1.2367) q[0];
rz(-2.8189) q[1];
rz(-2.0658) q[2];
rz(1.9836) q[3];
rz(-0.6251) q[4];
rz(-0.5099) q[5];
rz(0.6030) q[6];
rz(-0.1460) q[7];
rz(-0.7252) q[8];
rz(-2.9500) q[9];
rz(1.4221) q[10];
rz(2.9371) q[11];
cz q[0], q[1];
cz q[1], q[2];
cz q[2], q[3];
cz q[3], q[4];
cz q[4], q[5];
cz q[5], q[6];
cz q[6], q[7];
cz q[7], q[8];
cz q[8], q[9];
cz q[9], q[10];
cz q[10], q[11];
cz q[11], q[0];

// layer 3
ry(2.9927) q[0];
ry(1.0279) q[1];
ry(-0.9026) q[2];
ry(-0.8600) q[3];
ry(1.1945) q[4];
ry(1.0918) q[5];
ry(-2.4264) q[6];
ry(-1.6652) q[7];
ry(-0.8588) q[8];
ry(0.0713) q[9];
ry(1.9485) q[10];
ry(0.0001) q[11];
rz(-2.9648) q[0];
rz(2.0268) q[1];
rz(-0.4389) q[2];
rz(0.1194) q[3];
rz(-1.7457) q[4];
rz(-0.4571) q[5];
rz(-0.7022) q[6];
rz(1.7085) q[7];
rz(-2.4969) q[8];
rz(0.3140) q[9];
rz(-2.0229) q[10];
rz(1.2308) q[11];
cz q[0], q[1];
cz q[1], q[2];
cz q[2], q[3];
cz q[3], q[4];
cz q[4], q[5];
cz q[5], q[6];
cz q[6], q[7];
cz q[7], q[8];
cz q[8], q[9];
cz q[9], q[10];
cz q[10], q[11];
cz q[11], q[0];

// last row
ry(-2.9101) q[0];
ry(-1.4040) q[1];
ry(-0.9791) q[2];
ry(0.8604) q[3];
ry(-2.8145) q[4];
ry(-0.2560) q[5];
ry(-1.8297) q[6];
ry(-1.3704) q[7];
ry(-0.1491) q[8];
ry(2.8824) q[9];
ry(-0.1192) q[10];
ry(2.8645) q[11];
rz(-2.0888) q[0];
rz(2.6656) q[1];
rz(-0.8533) q[2];
rz(-1.9526) q[3];
rz(1.5615) q[4];
rz(2.5889) q[5];
rz(-3.0997) q[6];
rz(-1.4561) q[7];
rz(1.7007) q[8];
rz(-0.9941) q[9];
rz(-1.6237) q[10];
rz(-3.0874) q[11];

measure q -> c;
