#include "statevector/index/bits.hpp"
#include "statevector/observables/string_groups.hpp"

#include <velacamplix/part_values.hpp>

#include <cmath>
#include <stdexcept>
#include <string>

namespace pbamplix::cpu {

using namespace velacamplix;
using observables::pauli_string;

static_assert(fewest_piece_qubits == observables::slab_bits<double> + 1, "a patch must not be cut");

namespace {

void refuse(const std::string& why) { throw std::invalid_argument(why); }

void require_state(unsigned int state_qubits) {
    if (state_qubits > 63) {
        refuse("A state has at most 63 qubits, not " + std::to_string(state_qubits));
    }
}

// The strings of an observable on a state; or those that take the other part of the same products.
std::vector<pauli_string> strings_on(const WObservable<double>& observable, unsigned int state_qubits,
                                     bool other_part) {
    std::vector<pauli_string> strings = observables::strings_of(observable);
    const unsigned long all = index::low_bits(state_qubits);
    for (pauli_string& p : strings) {
        p.flip &= all;
        p.phase &= all;
        if (other_part) p.y_count = (p.y_count + 1) & 3;
    }
    return strings;
}

// The patches whose kets lie in a piece, for strings that flip the bits `beyond` of its number.
observables::patch_range patches_of(unsigned int piece_qubits, unsigned int state_qubits, unsigned long number,
                                    unsigned long beyond) {
    constexpr unsigned int patch_qubits = fewest_piece_qubits;
    if (piece_qubits == state_qubits) return {0, observables::patch_count<double>(1ul << state_qubits)};
    if (beyond == 0) return {number << (piece_qubits - patch_qubits), 1ul << (piece_qubits - patch_qubits)};
    // The kets are counted without the highest bit that the strings flip, so a patch has half as many of this piece.
    const unsigned long left_out = std::bit_floor(beyond);
    const unsigned long below = left_out - 1;
    const unsigned long ket = (number & below) | ((number >> 1) & ~below);
    return {ket << (piece_qubits - patch_qubits + 1), 2ul << (piece_qubits - patch_qubits)};
}

}  // namespace

unsigned long part_sections(unsigned int state_qubits) {
    require_state(state_qubits);
    return observables::section_count(observables::patch_count<double>(1ul << state_qubits));
}

template <class T>
void add_part_values(const thrust::complex<T>* ket, const thrust::complex<T>* bra, unsigned int piece_qubits,
                     unsigned int state_qubits, unsigned long number, const WObservable<double>& observable,
                     int nthreads, bool other_part, double* sums, const work_hook& hook) {
    require_state(state_qubits);
    if (piece_qubits > state_qubits || number >> (state_qubits - piece_qubits) != 0) {
        refuse("A state of " + std::to_string(state_qubits) + " qubits has no piece " + std::to_string(number) +
               " of " + std::to_string(piece_qubits) + " qubits");
    }
    if (piece_qubits < fewest_piece_qubits && piece_qubits != state_qubits) {
        refuse("A piece has " + std::to_string(fewest_piece_qubits) + " qubits at least, not " +
               std::to_string(piece_qubits));
    }
    const std::vector<pauli_string> strings = strings_on(observable, state_qubits, other_part);
    if (strings.empty()) return;
    const unsigned long beyond = strings[0].flip >> piece_qubits;
    for (const pauli_string& p : strings) {
        if (p.flip >> piece_qubits != beyond) refuse("The terms of a piece flip different qubits outside of it");
    }
    if ((number & std::bit_floor(beyond)) != 0) refuse("The piece that was given as the ket is the bra");

    const unsigned long size = 1ul << state_qubits;
    const unsigned long patches = observables::patch_count<double>(size);
    const unsigned long sections = observables::section_count(patches);
    const observables::patch_range range = patches_of(piece_qubits, state_qubits, number, beyond);
    const unsigned long first_section = range.first / (patches / sections);
    const unsigned long touched = std::max(1ul, range.count / (patches / sections));
    const observables::pair_products<double, T> products =
        piece_qubits == state_qubits ? observables::pair_products<double, T>(ket)
                                     : observables::pair_products<double, T>(ket, bra, piece_qubits);

    const std::vector<std::size_t> order = observables::order_by_flip<double>(strings);
    observables::string_group<double> group;
    std::vector<double> partial;
    for (std::size_t begin = 0; begin < order.size();) {
        const std::size_t end = group.take(strings, order, begin, size);
        const std::size_t masks = group.masks.size();
        // What earlier pieces of the same section gave is added to.
        partial.resize(touched * masks);
        const auto each = [&](auto&& act) {
            for (std::size_t m = 0; m < masks; ++m) {
                double* const of_term = sums + order[begin + m] * sections + first_section;
                for (unsigned long s = 0; s < touched; ++s) act(of_term[s], partial[s * masks + m]);
            }
        };
        each([](const double& kept, double& at_work) { at_work = kept; });
        const unsigned long bytes = group.sequences.size() * sizeof(thrust::complex<T>) << piece_qubits;
        observables::add_patches<double>(group.sequences, group.masks, patches, range, bytes, nthreads, products,
                                         partial.data(), [&] {
                                             if (hook) hook(begin, order.size());
                                         });
        each([](double& kept, const double& at_work) { kept = at_work; });
        begin = end;
        if (hook) hook(begin, order.size());
    }
}

std::vector<thrust::complex<double>> part_term_values(const WObservable<double>& observable, unsigned int state_qubits,
                                                      const double* sums, const double* others) {
    const unsigned long sections = part_sections(state_qubits);
    const unsigned long size = 1ul << state_qubits;
    const auto values_of = [&](const double* of_terms, bool other_part) {
        std::vector<double> values;
        for (const pauli_string& p : strings_on(observable, state_qubits, other_part)) {
            const double sum = observables::sum_of_sections(of_terms + values.size() * sections, sections, 1);
            values.push_back(observables::value_of<double>(p, size, sum));
        }
        return values;
    };
    std::vector<double> values = values_of(sums, false);
    if (others != nullptr) {
        const std::vector<double> other_values = values_of(others, true);
        for (std::size_t t = 0; t < values.size(); ++t) {
            if (std::isinf(values[t])) values[t] += 0.0 * other_values[t];
        }
    }
    std::vector<thrust::complex<double>> results;
    results.reserve(values.size());
    for (const double value : values) results.push_back(observable.coefficients[results.size()] * value);
    return results;
}

template void add_part_values(const thrust::complex<float>*, const thrust::complex<float>*, unsigned int, unsigned int,
                              unsigned long, const WObservable<double>&, int, bool, double*, const work_hook&);
template void add_part_values(const thrust::complex<double>*, const thrust::complex<double>*, unsigned int,
                              unsigned int, unsigned long, const WObservable<double>&, int, bool, double*,
                              const work_hook&);

}  // namespace pbamplix::cpu
