#pragma once

#include "reference/probabilities.hpp"
#include "support/compare.hpp"
#include "support/random_state.hpp"
#include "support/state_vector.hpp"

#include <velacamplix/measurement.hpp>

namespace support {

// A state, or a density matrix of half as many qubits, as the library and as the reference read it.
template <class T>
class MeasuredState {
public:
    explicit MeasuredState(const reference::State<T>& state, bool density_matrix = false)
        : vector_(state), view_(density_matrix ? reference::density_view(state) : reference::state_view(state)) {
        vector_.is_density_matrix = density_matrix;
    }

    LoadedVector<T>& vector() { return vector_; }
    const std::vector<T>& view() const { return view_; }
    unsigned int qubits() const { return reference::qubit_count(view_.size()); }

    // Calls `reader` with the library's view.
    template <class Reader>
    auto read(Reader reader) {
        const thrust::complex<T>* data = vector_.amplitudes.get();
        if (vector_.is_density_matrix) return reader(pbamplix::DMDiagSequence<T>{data, qubits(), view_.size()});
        return reader(pbamplix::SVSequence<thrust::complex<T>>{data, qubits(), view_.size()});
    }

    std::string describe(const reference::Qubits& listed, int threads) const {
        return (vector_.is_density_matrix ? "density matrix of " : "state of ") + std::to_string(qubits()) +
               " qubit(s), qubits " + support::describe(listed) + ", " + std::to_string(threads) + " thread(s)";
    }

private:
    LoadedVector<T> vector_;
    std::vector<T> view_;
};

}  // namespace support
