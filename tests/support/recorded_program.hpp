#pragma once

#include "support/compare.hpp"
#include "support/gate_lists.hpp"
#include "support/named_gates.hpp"
#include "support/random_state.hpp"
#include "support/state_vector.hpp"

#include <velacamplix/program.hpp>

#include <cmath>
#include <functional>

// Random programs, and the same gates one call at a time.
namespace support {

using reference::Qubits;

// The same gate twice: appended to a program, and applied through the state vector's own members.
template <class T>
class Recorder {
public:
    enum Matrices { any, unitary };

    Recorder(unsigned int n, unsigned int seed, Matrices matrices = any)
        : list(n), n_(n), engine_(seed), matrices_(matrices) {}

    void random_gate() {
        static const std::vector<std::string> one = plain_gates(1), turned = gates_with_angles(), two = plain_gates(2);
        const auto& name_of_turned = [&]() -> const std::string& {
            const std::string& name = any_of(turned);
            return qubits_of(name) <= n_ ? name : turned.front();
        };
        switch (below(n_ > 1 ? 8 : 4)) {
            case 0:
            case 1:
                named(any_of(one));
                break;
            case 2:
            case 3:
                named(name_of_turned());
                break;
            case 4:
                named(any_of(two));
                break;
            case 5:
                controlled_not();
                break;
            case 6:
                matrix(false);
                break;
            default:
                matrix(true);
                break;
        }
    }

    // One that only moves amplitudes, which others may overtake.
    void moving_gate() {
        const Qubits q = random_qubits(std::min(n_, 2u), n_, engine_);
        if (q.size() == 1 || below(3) == 0) return add("X", {q[0]});
        add(below(2) == 0 ? "CNOT" : "SWAP", q);
    }

    // Applies every gate to `state`, one call each.
    void apply(StateVector<T>& state, unsigned long count) const { apply(state, 0, count); }
    void apply(StateVector<T>& state, unsigned long first, unsigned long last) const {
        for (unsigned long i = first; i < last; ++i) gates_[i](state);
    }

    pbamplix::cpu::program<T> list;

private:
    using Gate = std::function<void(StateVector<T>&)>;

    unsigned int below(unsigned int limit) { return engine_() % limit; }
    const std::string& any_of(const std::vector<std::string>& names) {
        return names[below(static_cast<unsigned int>(names.size()))];
    }
    T angle() { return T(below(1000)) / 100 - 5; }

    // Up to two controls apart from the targets.
    Qubits controls_beside(const Qubits& targets) {
        const auto most = static_cast<unsigned int>(n_ - targets.size());
        const Qubits all = random_qubits(n_, n_, engine_);
        Qubits controls;
        for (const unsigned int q : all) {
            if (controls.size() == std::min(most, below(3))) break;
            if (std::find(targets.begin(), targets.end(), q) == targets.end()) controls.push_back(q);
        }
        return controls;
    }

    void add(const std::string& name, const Qubits& q, const Qubits& c = {}) {
        const reference::NamedGate<T> gate{name, q, angle(), c, angle(), angle()};
        list.add_gate(name, params_of(gate), q, c);
        gates_.push_back([=](StateVector<T>& s) { call_member(s, gate); });
    }

    // With controls where the member takes some.
    void named(const std::string& name) {
        const Qubits q = random_qubits(qubits_of(name), n_, engine_);
        add(name, q, q.size() == 1 || !has_member(name) ? controls_beside(q) : Qubits{});
    }

    void controlled_not() {
        const Qubits q = random_qubits(std::min(n_, 3u), n_, engine_);
        if (q.size() == 3 && below(2) == 0) {
            add("CCNOT", q);
        } else {
            add(below(2) == 0 ? "CSIGN" : "CNOT", {q[0], q[1]});
        }
    }

    void matrix(bool diagonal) {
        const Qubits q = random_qubits(1 + below(std::min(n_, 4u)), n_, engine_);
        const Qubits c = controls_beside(q);
        const unsigned long dim = 1ul << q.size();
        std::vector<thrust::complex<T>> m(dim * dim);
        if (matrices_ == unitary) {
            m = unitary_matrix(dim, diagonal);
        } else {
            const auto entries = as_thrust(random_coefficients<T>(dim * dim, engine_()));
            for (unsigned long i = 0; i < dim * dim; ++i) {
                if (!diagonal || i % (dim + 1) == 0) m[i] = entries[i];
            }
        }
        if (diagonal && below(2) == 0) {
            std::vector<thrust::complex<T>> diag(dim);
            for (unsigned long i = 0; i < dim; ++i) diag[i] = m[i * (dim + 1)];
            list.add_diagonal(diag, q, c);
        } else {
            list.add_matrix(m, q, c);
        }
        gates_.push_back([=](StateVector<T>& s) {
            if (q.size() == 1) c.empty() ? s.apply_1qbit_gate(q[0], m) : s.apply_1qbit_ctrl_gate(c, q[0], m);
            if (q.size() == 2)
                c.empty() ? s.apply_2qbit_gate(q[0], q[1], m) : s.apply_2qbit_ctrl_gate(c, q[0], q[1], m);
            if (q.size() > 2) c.empty() ? s.apply_nqbit_gate(q, m) : s.apply_nqbit_ctrl_gate(c, q, m);
        });
    }

    // The Fourier matrix with random phases on its rows, or these phases alone.
    std::vector<thrust::complex<T>> unitary_matrix(unsigned long dim, bool diagonal) {
        std::vector<thrust::complex<T>> m(dim * dim);
        for (unsigned long row = 0; row < dim; ++row) {
            const double phase = static_cast<double>(angle());
            for (unsigned long column = 0; column < dim; ++column) {
                if (diagonal && row != column) continue;
                const double size = diagonal ? 1 : 1 / std::sqrt(static_cast<double>(dim));
                const double turn = diagonal ? 0 : 6.283185307179586 * static_cast<double>(row * column);
                const double a = phase + turn / static_cast<double>(dim);
                m[row * dim + column] =
                    thrust::complex<T>(static_cast<T>(size * std::cos(a)), static_cast<T>(size * std::sin(a)));
            }
        }
        return m;
    }

    unsigned int n_;
    std::mt19937 engine_;
    Matrices matrices_;
    std::vector<Gate> gates_;
};

// Compares all amplitudes bit for bit.
template <class T>
testing::AssertionResult equal_states(const StateVector<T>& expected, const StateVector<T>& got) {
    const auto* numbers = reinterpret_cast<const T*>(expected.amplitudes.get());
    return same_numbers(numbers, reinterpret_cast<const T*>(got.amplitudes.get()), 2 * expected.size, 2);
}

}  // namespace support
