#include <velacamplix/kernels.hpp>
#include <velacamplix/observable.hpp>

namespace pbamplix::cpu {
namespace {

// Calls rotate_x(qubit) and rotate_y(qubit) for the term's X and Y, in list order. What stands for neither, also a
// position behind the end of a pruned operator string, is measured as it is, like Z. Gates without controls take no
// memory, so nothing throws half way.
template <class T, class RotateX, class RotateY>
void rotate(const SimpleTerm<T>& term, RotateX rotate_x, RotateY rotate_y) {
    for (std::size_t j = 0; j < term.qubits.size() && j < term.op.size(); ++j) {
        if (term.op[j] == 'X') rotate_x(term.qubits[j]);
        if (term.op[j] == 'Y') rotate_y(term.qubits[j]);
    }
}

}  // namespace

template <class T>
void basis_change(thrust::complex<T>* amplitudes, const SimpleTerm<T>& term, bool undo, unsigned int qubits,
                  int nthreads) {
    rotate(
        term, [&](unsigned int q) { Template1QBGate<GateH>::apply_controlled(amplitudes, q, qubits, nthreads, {}); },
        [&](unsigned int q) {
            if (undo) {
                Template1QBGate<GateZtoY>::apply_controlled(amplitudes, q, qubits, nthreads, {});
            } else {
                Template1QBGate<GateYtoZ>::apply_controlled(amplitudes, q, qubits, nthreads, {});
            }
        });
}

template <class T>
void basis_change_deterministic(thrust::complex<T>* amplitudes, const SimpleTerm<T>& term, bool undo,
                                unsigned int qubits, int nthreads) {
    // A qubit and its row copy: the gate on the one, its conjugate on the other.
    const unsigned int copy = qubits >> 1;
    rotate(
        term,
        [&](unsigned int q) {
            Template2QBGate<GateHH>::apply_controlled(amplitudes, q, q + copy, qubits, nthreads, {});
        },
        [&](unsigned int q) {
            if (undo) {
                Template2QBGate<GateZtoYZtoYConj>::apply_controlled(amplitudes, q, q + copy, qubits, nthreads, {});
            } else {
                Template2QBGate<GateYtoZYtoZConj>::apply_controlled(amplitudes, q, q + copy, qubits, nthreads, {});
            }
        });
}

template void basis_change(thrust::complex<float>*, const SimpleTerm<float>&, bool, unsigned int, int);
template void basis_change(thrust::complex<double>*, const SimpleTerm<double>&, bool, unsigned int, int);
template void basis_change_deterministic(thrust::complex<float>*, const SimpleTerm<float>&, bool, unsigned int, int);
template void basis_change_deterministic(thrust::complex<double>*, const SimpleTerm<double>&, bool, unsigned int, int);

}  // namespace pbamplix::cpu
