#pragma once

#include <velacamplix/program.hpp>
#include <velacamplix/statevector.hpp>

#include <complex>
#include <string>
#include <vector>

// Whole circuits to measure: what people run on such simulators, as plain lists. The same on every machine.

namespace velacamplix::bench {

struct listed_gate {
    std::string name;  // a name both the circuit record and a program know; empty for a matrix
    std::vector<double> angles;
    std::vector<unsigned int> qubits;
    std::vector<std::complex<double>> matrix{};  // row-major, on one qubit or two
};

struct listed_circuit {
    std::string name;
    std::vector<listed_gate> gates;
};

// Of n qubits, n at least 2:
//   ansatz   10 layers of RY on all, RZ on all, a chain of CNOT
//   layers   20 layers of H, T or RX on all, CNOT on neighbours
//   qft      the Fourier transform written with H, PH and CNOT
//   random   300 gates H, RX, RZ, CNOT on random qubits
//   ghz      H and a chain of CNOT
//   qaoa     3 rounds of CNOT, RZ, CNOT on the edges of a graph with three edges a qubit, then RX on all
//   heis     a Trotter step of the Heisenberg model on a grid, 17 gates an edge
//   qv       10 layers of matrices on random pairs
//   rqc      10 cycles on a grid: roots of X, Y and X + Y on all, fSim on every fourth edge
// The last two have gates that a record cannot hold.
std::vector<listed_circuit> measured_circuits(unsigned int n);

template <class T>
std::vector<thrust::complex<T>> matrix_of(const listed_gate& gate) {
    std::vector<thrust::complex<T>> entries;
    for (const auto& entry : gate.matrix) {
        entries.emplace_back(static_cast<T>(entry.real()), static_cast<T>(entry.imag()));
    }
    return entries;
}

template <class T>
pbamplix::cpu::program<T> as_program(const listed_circuit& circuit, unsigned int n) {
    pbamplix::cpu::program<T> program(n);
    for (const auto& gate : circuit.gates) {
        if (gate.matrix.empty()) {
            // Rounded as members take them; a program would use all digits.
            std::vector<double> angles;
            for (const double angle : gate.angles) angles.push_back(static_cast<double>(static_cast<T>(angle)));
            program.add_gate(gate.name, angles, gate.qubits);
        } else {
            program.add_matrix(matrix_of<T>(gate), gate.qubits);
        }
    }
    return program;
}

bool fits_a_record(const listed_circuit& circuit);

template <class T>
pbamplix::PybindAmplixWCircuit<T> as_record(const listed_circuit& circuit, unsigned int n) {
    pbamplix::PybindAmplixWCircuit<T> record(n);
    for (const auto& gate : circuit.gates) {
        record.add_gate(gate.name, std::vector<T>(gate.angles.begin(), gate.angles.end()), gate.qubits);
    }
    return record;
}

// One call of a member per gate. Throws std::invalid_argument for a name that measured_circuits does not use.
template <class T>
void apply_gate_by_gate(pbamplix::cpu::PybindAmplixStateVectorCPU<T>& state, const listed_circuit& circuit);

}  // namespace velacamplix::bench
