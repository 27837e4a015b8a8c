#include <velacamplix/gradient.hpp>

#include "statevector/gradients/derivative.hpp"
#include "statevector/gradients/inverse.hpp"
#include "statevector/gradients/way_back.hpp"
#include "statevector/index/bits.hpp"
#include "statevector/packs/widened.hpp"
#include "statevector/replay/program_content.hpp"
#include "statevector/storage/aligned_array.hpp"
#include "statevector/storage/memory_guard.hpp"
#include "statevector/storage/parallel.hpp"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <optional>

namespace velacamplix::gradients {
namespace {

using replay::refuse;

constexpr double unitary_tolerance = 1e-5;

template <class T>
using state_array = pbamplix::amplitude_array<T>;

// The qubits that a Hermitian observable acts on; anything else is refused.
unsigned long checked_support(const WObservable<double>& observable, std::size_t place, unsigned long size) {
    const auto refuse_this = [&](const std::string& why) { refuse("Observable " + std::to_string(place) + " " + why); };
    const std::size_t terms = observable.flip_masks.size();
    if (observable.coefficients.size() != terms || observable.phase_masks.size() != terms ||
        observable.y_counts.size() != terms) {
        refuse_this("has lists of different lengths");
    }
    if (observable.constant.imag() != 0) refuse_this("is not Hermitian: its constant is complex");
    unsigned long support = 0;
    for (std::size_t t = 0; t < terms; ++t) {
        const unsigned long flip = observable.flip_masks[t], phase = observable.phase_masks[t];
        if ((flip | phase) >= size) {
            refuse_this("acts on qubits that the state lacks, in term " + std::to_string(t));
        }
        if (observable.coefficients[t].imag() != 0 || (index::count_bits(flip & phase) + observable.y_counts[t]) % 2) {
            refuse_this("is not Hermitian: term " + std::to_string(t) + " is not");
        }
        if (observable.coefficients[t].real() != 0) support |= flip | phase;
    }
    return support;
}

template <class T>
void check_constants(std::span<const gates::operation<T>> operations) {
    for (std::size_t gate = 0; gate < operations.size(); ++gate) {
        const double deviation = deviation_from_unitary(operations[gate]);
        if (deviation <= unitary_tolerance) continue;
        refuse("Gate " + std::to_string(gate) + ", " + gates::name_of(operations[gate].kind) +
               ", is not unitary: an entry of M M^dagger is " + std::to_string(deviation) +
               " off the identity; a gradient needs the way back through all gates");
    }
}

// For each of `gates`, whether an observable on the qubits `support`, seen from before all later gates, acts on it.
template <class T>
std::vector<bool> in_light_cone(std::span<const gates::operation<T>> operations, unsigned long support) {
    std::vector<bool> inside(operations.size());
    for (std::size_t gate = operations.size(); gate-- > 0;) {
        const unsigned long qubits = operations[gate].target_mask() | operations[gate].controls;
        inside[gate] = (qubits & support) != 0;
        if (inside[gate]) support |= qubits;
    }
    return inside;
}

template <class T>
void copy_amplitudes(const thrust::complex<T>* initial, unsigned long size, thrust::complex<T>* psi, int nthreads) {
    const unsigned long amplitude = sizeof(thrust::complex<T>);
    auto* const to = reinterpret_cast<T*>(psi);
    const auto* const from = reinterpret_cast<const T*>(initial);
    storage::parallel_shares(size, size * amplitude, nthreads, [=](unsigned long begin, unsigned long end) {
        std::memcpy(to + 2 * begin, from + 2 * begin, (end - begin) * amplitude);
    });
}

// |psi - initial|, |0...0> for null: in spans of 2^16 amplitudes, these in order.
template <class T>
double distance(const thrust::complex<T>* psi, unsigned long size, const thrust::complex<T>* initial, int nthreads) {
    constexpr unsigned long span = 1ul << 16;
    const unsigned long spans = (size + span - 1) / span;
    std::vector<double> partial(spans);
    storage::parallel_shares(spans, size * sizeof(*psi), nthreads, [&](unsigned long begin, unsigned long end) {
        for (unsigned long s = begin; s < end; ++s) {
            for (unsigned long i = s * span; i < std::min(size, (s + 1) * span); ++i) {
                const auto a = packs::widened<double>(packs::read_amplitude(psi + i));
                const auto b = initial != nullptr ? packs::widened<double>(packs::read_amplitude(initial + i))
                                                  : thrust::complex<double>(i == 0 ? 1 : 0, 0);
                const double re = a.real() - b.real(), im = a.imag() - b.imag();
                partial[s] += re * re + im * im;
            }
        }
    });
    double sum = 0;
    for (const double s : partial) sum += s;
    return std::sqrt(sum);
}

// Where the sums of a gate's derivatives stand among all, and with which weights.
struct gate_derivative {
    std::vector<std::size_t> places;
    std::vector<std::vector<double>> weights;
};

// The place of a sum in a list, which takes it up if it is new.
std::size_t place_among(std::vector<pauli_sum>& sums, const pauli_sum& wanted) {
    const auto known =
        std::find_if(sums.begin(), sums.end(), [&](const pauli_sum& sum) { return is_same(sum, wanted); });
    const auto place = static_cast<std::size_t>(known - sums.begin());
    if (known == sums.end()) sums.push_back(wanted);
    return place;
}

// How many lambdas there may be at a time. What fits changes no result.
unsigned long lambdas_at_a_time(std::size_t observables, unsigned long most_states, unsigned long state_bytes) {
    const unsigned long fit = std::min(storage::free_memory() / state_bytes, most_states);
    const unsigned long lambdas = fit > 2 ? std::min<unsigned long>(observables, fit - 1) : 1;
    storage::refuse_beyond_free_memory((lambdas + 1) * state_bytes);
    return lambdas;
}

}  // namespace
}  // namespace velacamplix::gradients

namespace pbamplix::cpu {

using namespace velacamplix::gradients;

template <class T>
gradient_result program<T>::gradient(const std::vector<WObservable<double>>& observables,
                                     const std::vector<unsigned long>& gates, const gradient_settings<T>& settings) {
    using replay::counted, replay::refuse;
    implementation& content = replay::content_of(self);
    const std::span<const velacamplix::gates::operation<T>> operations = content.operations;
    unsigned int n = content.nqubits;
    const thrust::complex<T>* initial = nullptr;
    if (settings.initial != nullptr) {
        n = settings.initial->nqubits;
        initial = settings.initial->amplitudes.get();
        if (initial == nullptr) refuse("The initial state has no amplitudes");
        if (n < content.nqubits) {
            refuse("The program has " + counted(content.nqubits, "qubit") + ", the initial state " + std::to_string(n));
        }
    }
    const unsigned long size = 1ul << n, state_bytes = size * sizeof(thrust::complex<T>);

    // Where the angles of every gate stand in a row of derivatives.
    std::vector<std::size_t> first_angle;
    std::size_t angles = 0;
    std::vector<bool> is_wanted(operations.size());
    for (const unsigned long gate : gates) {
        first_angle.push_back(angles);
        angles += angle_count(gate);
        if (angle_count(gate) == 0) {
            refuse("Gate " + std::to_string(gate) + ", " + velacamplix::gates::name_of(operations[gate].kind) +
                   ", takes no angle");
        }
        is_wanted[gate] = true;
    }
    std::vector<unsigned long> supports;
    for (std::size_t k = 0; k < observables.size(); ++k) supports.push_back(checked_support(observables[k], k, size));
    check_constants(operations);

    gradient_result result;
    if (observables.empty()) return result;
    result.derivatives.resize(observables.size() * angles);
    const unsigned long batch = lambdas_at_a_time(observables.size(), settings.most_states, state_bytes);
    const unsigned long batches = (observables.size() + batch - 1) / batch;

    // Told in gates on one state: forward, and back with each observable.
    const unsigned long all_work = operations.size() * (2 * batches + observables.size());
    unsigned long done = 0;
    const auto tell = [&](unsigned long more) {
        if (settings.hook) settings.hook(done + more, all_work);
    };
    const progress_hook on_the_way_forward = [&](unsigned long gate, unsigned long) {
        tell(gate);
        return true;
    };
    auto* const forward = content.schedule_for(0, operations.size(), n, settings.nthreads,
                                               settings.hook ? on_the_way_forward : progress_hook());
    if (!content.way_back || content.way_back->state_qubits != n) {
        content.way_back =
            std::make_shared<plan_back<T>>(make_plan_back(operations, n, content.fusion, [&] { tell(0); }));
    }
    const plan_back<T>& back = *content.way_back;

    auto psi = storage::make_amplitudes<T>(size);
    std::vector<state_array<T>> lambdas;
    for (unsigned long k = 0; k < std::min(batch, observables.size()); ++k) {
        lambdas.push_back(storage::make_amplitudes<T>(size));
    }
    for (unsigned long b = 0; b < batches; ++b) {
        const std::size_t first = b * batch, last = std::min(first + batch, observables.size());
        std::optional<unsigned long> basis_state = 0;
        if (initial != nullptr) {
            copy_amplitudes(initial, size, psi.get(), settings.nthreads);
            basis_state.reset();
        }
        forward->run_to_end(operations, psi.get(), settings.hook ? on_the_way_forward : progress_hook(), basis_state);
        done += operations.size();

        const work_hook still_here = [&](unsigned long, unsigned long) { tell(0); };
        std::vector<thrust::complex<T>*> taken_back;
        std::vector<std::vector<bool>> cones;
        std::vector<bool> in_any_cone(operations.size());
        for (std::size_t k = first; k < last; ++k) {
            const WObservable<double>& observable = observables[k];
            double value = 0;
            for (const auto& term : term_values(psi.get(), observable, size, settings.nthreads, still_here)) {
                value += term.real();
            }
            result.values.push_back(value + observable.constant.real());
            WObservable<double> without_constant = observable;
            without_constant.constant = 0;
            taken_back.push_back(lambdas[k - first].get());
            apply_observable(psi.get(), without_constant, n, settings.nthreads, taken_back.back(), still_here);
            cones.push_back(in_light_cone(operations, supports[k]));
            for (std::size_t gate = 0; gate < operations.size(); ++gate) {
                if (cones.back()[gate]) in_any_cone[gate] = true;
            }
        }

        std::vector<sums_behind> wanted;
        std::vector<gate_derivative> derivatives(operations.size());
        std::size_t sums = 0;
        for (unsigned long block = 0; block < back.blocks.size(); ++block) {
            sums_behind behind{block, {}};
            for (unsigned long place = 0; place < back.blocks[block].size(); ++place) {
                const unsigned long gate = back.blocks[block][place];
                if (!is_wanted[gate] || !in_any_cone[gate]) continue;
                derivative own = derivative_of(operations, back.blocks, block, place);
                std::vector<std::size_t>& places = derivatives[gate].places;
                for (const pauli_sum& sum : own.sums) places.push_back(sums + place_among(behind.sums, sum));
                derivatives[gate].weights = std::move(own.weights);
            }
            if (behind.sums.empty()) continue;
            sums += behind.sums.size();
            wanted.push_back(std::move(behind));
        }
        const auto totals = run_back(operations, back, wanted, settings.nthreads, psi.get(), taken_back,
                                     [&](unsigned long undone, unsigned long) { tell(undone * (1 + last - first)); });
        done += operations.size() * (1 + last - first);
        if (b == 0) result.return_error = distance(psi.get(), size, initial, settings.nthreads);

        for (std::size_t k = first; k < last; ++k) {
            double* const row = result.derivatives.data() + k * angles;
            for (std::size_t g = 0; g < gates.size(); ++g) {
                const unsigned long gate = gates[g];
                if (!cones[k - first][gate]) continue;
                const gate_derivative& d = derivatives[gate];
                for (std::size_t a = 0; a < d.weights.size(); ++a) {
                    double value = 0;
                    for (std::size_t s = 0; s < d.places.size(); ++s) {
                        value += d.weights[a][s] * totals[k - first][d.places[s]];
                    }
                    row[first_angle[g] + a] = value;
                }
            }
        }
    }
    return result;
}

#define VELACAMPLIX_INSTANTIATE(T)                                                         \
    template gradient_result program<T>::gradient(const std::vector<WObservable<double>>&, \
                                                  const std::vector<unsigned long>&, const gradient_settings<T>&);
VELACAMPLIX_FOR_EACH_PRECISION(VELACAMPLIX_INSTANTIATE)

}  // namespace pbamplix::cpu
