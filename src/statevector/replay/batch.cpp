#include <velacamplix/batch.hpp>

#include "statevector/replay/at_work.hpp"
#include "statevector/storage/memory_guard.hpp"
#include "statevector/storage/parallel.hpp"

#include <algorithm>
#include <atomic>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

namespace pbamplix::cpu {

using namespace velacamplix;

namespace {

// From this many qubits on threads share the amplitudes of one state: a state per thread would leave the caches.
constexpr unsigned int fewest_shared_qubits = 18;

[[noreturn]] void refuse(const std::string& why) { throw std::invalid_argument(why); }

template <class T>
unsigned int qubits_of_states(unsigned int of_programs, const batch_settings<T>& settings) {
    if (settings.initial == nullptr) return of_programs;
    if (settings.initial->amplitudes == nullptr) refuse("The initial state has no amplitudes");
    if (settings.initial->nqubits < of_programs) {
        refuse("The programs have " + std::to_string(of_programs) + " qubits, the initial state " +
               std::to_string(settings.initial->nqubits));
    }
    return settings.initial->nqubits;
}

template <class T>
void copy_amplitudes(const PybindAmplixStateVectorCPU<T>& initial, PybindAmplixStateVectorCPU<T>& state) {
    const unsigned long amplitude = sizeof(thrust::complex<T>);
    const auto* const from = reinterpret_cast<const T*>(initial.amplitudes.get());
    auto* const to = reinterpret_cast<T*>(state.amplitudes.get());
    storage::parallel_shares(state.size, state.size * amplitude, state.num_threads,
                             [=](unsigned long begin, unsigned long end) {
                                 std::memcpy(to + 2 * begin, from + 2 * begin, (end - begin) * amplitude);
                             });
}

// False when the hook has stopped it.
template <class T>
bool run_one(program<T>& list, PybindAmplixStateVectorCPU<T>& state, const PybindAmplixStateVectorCPU<T>* initial,
             const typename program<T>::progress_hook& hook) {
    state.is_density_matrix = initial != nullptr && initial->is_density_matrix;
    if (initial == nullptr) return list.run_from_basis_state(state, 0, hook);
    copy_amplitudes(*initial, state);
    return list.run_to_end(state, hook);
}

// `gates` are those of all runs together. prepare(workers) is told how many runs there are at a time; list_of(worker,
// run) then gives a worker the program of a run.
template <class T, class Prepare, class ListOf>
unsigned long run_all(unsigned int nqubits, unsigned long runs, unsigned long gates, const batch_result<T>& result,
                      const batch_settings<T>& settings, Prepare prepare, ListOf list_of) {
    if (!result) refuse("A batch needs somebody who takes its results");
    if (runs == 0) return 0;
    const unsigned int n = qubits_of_states(nqubits, settings);
    const unsigned long state_bytes = sizeof(thrust::complex<T>) << n;
    const bool one_per_thread = n < fewest_shared_qubits;
    // What all gates touch; that a region is worth its while shows long before the sum could overflow.
    const unsigned long touched = one_per_thread ? state_bytes * std::min(runs + gates, 1ul << 20) : 0;
    const unsigned long workers = storage::most_bodies(runs, touched, settings.nthreads);

    storage::refuse_beyond_free_memory(workers * state_bytes);
    std::vector<std::unique_ptr<PybindAmplixStateVectorCPU<T>>> states;
    for (unsigned long worker = 0; worker < workers; ++worker) {
        states.push_back(std::make_unique<PybindAmplixStateVectorCPU<T>>(n));
    }
    prepare(workers);

    std::atomic<unsigned long> next = 0, done = 0;
    std::atomic<bool> stopped = false;
    replay::at_work threads;
    const auto caller = std::this_thread::get_id();
    const auto work = [&](PybindAmplixStateVectorCPU<T>& state, unsigned long worker) {
        const replay::at_work::one here(threads);
        const bool hears = settings.hook && std::this_thread::get_id() == caller;
        const auto goes_on = [&](unsigned long = 0, unsigned long = 0) {
            if (hears && !stopped && !settings.hook(done, runs)) stopped = true;
            return !stopped.load();
        };
        while (!stopped) {
            const unsigned long run = next++;
            if (run >= runs) break;
            if (state.amplitudes == nullptr || state.nqubits != n) {
                throw std::logic_error("What took a result of a batch has resized or released its state");
            }
            state.num_threads = one_per_thread ? 1 : settings.nthreads;
            if (!run_one(list_of(worker, run), state, settings.initial, goes_on)) return;
            result(run, state);
            ++done;
        }
        if (hears) threads.outwait_others(goes_on);
    };
    storage::parallel_leases(workers, touched, settings.nthreads,
                             [&](unsigned long, unsigned long, unsigned long worker) {
                                 try {
                                     work(*states[worker], worker);
                                 } catch (...) {
                                     stopped = true;  // the others too
                                     throw;
                                 }
                             });
    return done;
}

}  // namespace

template <class T>
unsigned long run_batch(std::vector<program<T>>& programs, const std::type_identity_t<batch_result<T>>& result,
                        const std::type_identity_t<batch_settings<T>>& settings) {
    unsigned long gates = 0;
    for (const program<T>& list : programs) {
        if (list.nqubits() != programs[0].nqubits()) {
            refuse("The programs of a batch have one number of qubits, not " + std::to_string(programs[0].nqubits()) +
                   " and " + std::to_string(list.nqubits()));
        }
        gates += list.size();
    }
    const unsigned int nqubits = programs.empty() ? 0 : programs[0].nqubits();
    return run_all<T>(
        nqubits, programs.size(), gates, result, settings, [](unsigned long) {},
        [&](unsigned long, unsigned long run) -> program<T>& { return programs[run]; });
}

template <class T>
unsigned long run_batch(const program<T>& list, const std::vector<unsigned long>& gates,
                        const std::vector<std::vector<double>>& angles,
                        const std::type_identity_t<batch_result<T>>& result,
                        const std::type_identity_t<batch_settings<T>>& settings) {
    std::vector<unsigned int> counts;
    unsigned long wanted = 0;
    for (const unsigned long gate : gates) {
        counts.push_back(list.angle_count(gate));
        if (counts.back() == 0) refuse("Gate " + std::to_string(gate) + " takes no angle");
        wanted += counts.back();
    }
    for (unsigned long run = 0; run < angles.size(); ++run) {
        if (angles[run].size() == wanted) continue;
        refuse("The gates take " + std::to_string(wanted) + " angles, but run " + std::to_string(run) + " has " +
               std::to_string(angles[run].size()));
    }
    std::vector<program<T>> copies;
    return run_all<T>(
        list.nqubits(), angles.size(), angles.size() * list.size(), result, settings,
        [&](unsigned long workers) {
            for (unsigned long worker = 0; worker < workers; ++worker) copies.push_back(list.copy());
        },
        [&](unsigned long worker, unsigned long run) -> program<T>& {
            program<T>& own = copies[worker];
            auto from = angles[run].begin();
            for (std::size_t i = 0; i < gates.size(); ++i) {
                const auto to = from + counts[i];
                own.set_params(gates[i], {from, to});
                from = to;
            }
            return own;
        });
}

#define VELACAMPLIX_INSTANTIATE(T)                                                                              \
    template unsigned long run_batch<T>(std::vector<program<T>>&, const std::type_identity_t<batch_result<T>>&, \
                                        const std::type_identity_t<batch_settings<T>>&);                        \
    template unsigned long run_batch<T>(                                                                        \
        const program<T>&, const std::vector<unsigned long>&, const std::vector<std::vector<double>>&,          \
        const std::type_identity_t<batch_result<T>>&, const std::type_identity_t<batch_settings<T>>&);
VELACAMPLIX_INSTANTIATE(float)
VELACAMPLIX_INSTANTIATE(double)
#undef VELACAMPLIX_INSTANTIATE

}  // namespace pbamplix::cpu
