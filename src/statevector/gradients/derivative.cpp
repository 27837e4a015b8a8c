#include "statevector/gradients/derivative.hpp"

#include "statevector/packs/precision.hpp"

#include <cmath>

namespace velacamplix::gradients {

using gates::gate_kind;

// With U(angle) = exp(-i angle/2 P) the derivative is 2 Re <lambda|-i/2 P|psi> = Im <lambda|P|psi>. Where all controls
// read 1 that is, for elsewhere nothing depends on the angle.
template <class T>
derivative derivative_of(const gates::operation<T>& op) {
    const unsigned long targets = op.target_mask(), controls = op.controls;
    switch (op.kind) {
        case gate_kind::rx:
        case gate_kind::rxx:
            return {{{targets, 0, 0, controls}}, {{1}}};
        case gate_kind::ry:
            return {{{targets, targets, 1, controls}}, {{1}}};
        case gate_kind::ryy:
            return {{{targets, targets, 2, controls}}, {{1}}};
        case gate_kind::rz:
        case gate_kind::rzz:
            return {{{0, targets, 0, controls}}, {{1}}};
        case gate_kind::ph:  // exp(i angle |1><1|)
            return {{{0, 0, 0, controls | targets}}, {{-2}}};
        case gate_kind::u: {
            // U = phase(phi) RY(theta) phase(lam), phase(a) = diag(1, exp(i a)). Behind it stand, in place of Y and
            // |1><1|, phase(phi) Y phase(-phi) = cos(phi) Y - sin(phi) X, and U |1><1| U^dagger with the entries
            // sin^2(theta/2), cos^2(theta/2) and, at 01, -1/2 sin(theta) exp(-i phi).
            const double theta = op.angles[0], phi = op.angles[1];
            const double s = std::sin(theta * 0.5), c = std::cos(theta * 0.5);
            const double x = std::cos(phi), y = std::sin(phi);
            const pauli_sum flip = {targets, 0, 0, controls}, turn = {targets, targets, 1, controls};
            const pauli_sum both = {0, 0, 0, controls}, one = {0, 0, 0, controls | targets};
            return {{flip, turn, both, one},
                    {{-y, x, 0, 0}, {0, 0, 0, -2}, {2 * s * c * x, 2 * s * c * y, -2 * s * s, 2 * (s * s - c * c)}}};
        }
        default:
            return {};
    }
}

unsigned count_sums(gate_kind kind) { return gates::angles_of(kind) == 0 ? 0 : kind == gate_kind::u ? 4 : 1; }

#define VELACAMPLIX_INSTANTIATE(T) template derivative derivative_of(const gates::operation<T>&);
VELACAMPLIX_FOR_EACH_PRECISION(VELACAMPLIX_INSTANTIATE)

}  // namespace velacamplix::gradients
