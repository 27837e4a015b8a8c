#include "statevector/channels/experiment.hpp"
#include "statevector/gates/gate_table.hpp"
#include "statevector/measurement/sampling.hpp"
#include "statevector/packs/precision.hpp"
#include "statevector/replay/at_work.hpp"
#include "statevector/replay/program_content.hpp"
#include "statevector/storage/memory_guard.hpp"
#include "statevector/storage/parallel.hpp"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <thread>

namespace pbamplix::cpu {

using namespace velacamplix;
using channels::experiment;
using channels::list_runner;
using channels::noise_list;
using channels::trajectory_record;
using channels::waiting_shot;
using channels::walker;
using replay::content_of;
using replay::refuse;

namespace {

// From this many qubits on threads share the amplitudes of one state: a state per thread would leave the caches.
constexpr unsigned fewest_shared_qubits = 18;

// Bounds the memory for shots that wait to 50 MiB, and the time in which nobody asks whether to stop; more shots walk
// through the program again.
constexpr unsigned long most_at_once = 1ul << 20;

// Bounds the memory for plans that stay between two calls to some 100 MiB.
constexpr unsigned long most_kept_gates = 1ul << 18;

// Draws the first events of some shots and puts them in the order in which they are made.
template <class T>
void draw_shots(experiment<T>& made, unsigned long first, unsigned long count) {
    made.next = 0;
    made.shots.clear();
    made.quiet.clear();
    if (made.noise.size() == 0) {
        made.quiet.resize(count);
        std::iota(made.quiet.begin(), made.quiet.end(), first);
        return;
    }
    std::mutex mutex;
    storage::parallel_shares(
        count, count * sizeof(waiting_shot), made.settings.nthreads, [&](unsigned long begin, unsigned long end) {
            std::vector<waiting_shot> shots;
            std::vector<unsigned long> quiet;
            channels::draw_first_events(made.noise, made.settings.seed, first + begin, first + end, shots, quiet);
            const std::lock_guard lock(mutex);
            made.shots.insert(made.shots.end(), shots.begin(), shots.end());
            made.quiet.insert(made.quiet.end(), quiet.begin(), quiet.end());
        });
    std::sort(made.shots.begin(), made.shots.end(), [](const waiting_shot& a, const waiting_shot& b) {
        if (a.site != b.site) return a.site < b.site;
        return a.choice != b.choice ? a.choice < b.choice : a.shot < b.shot;
    });
}

template <class T>
void make_shots(experiment<T>& made, std::vector<std::unique_ptr<list_runner<T>>>& runners, unsigned long workers,
                unsigned long touched, std::vector<trajectory_record>& records) {
    std::vector<std::unique_ptr<walker<T>>> walkers(workers);
    if (runners.size() < workers) runners.resize(workers);
    replay::at_work threads;
    const auto caller = std::this_thread::get_id();
    const auto work = [&](unsigned long worker) {
        const replay::at_work::one here(threads);
        const bool hears = std::this_thread::get_id() == caller && made.settings.hook;
        auto& runner = runners[worker];
        if (runner == nullptr) {
            runner =
                std::make_unique<list_runner<T>>(made.operations, made.calls, made.nqubits, made.threads_per_state);
        }
        walkers[worker] = std::make_unique<walker<T>>(made, *runner, hears);
        walkers[worker]->work();
        if (!hears) return;
        threads.outwait_others([&] {
            made.settings.hook(made.done, made.settings.shots);
            return !made.stopped;
        });
    };
    storage::parallel_leases(workers, touched, made.settings.nthreads,
                             [&](unsigned long, unsigned long, unsigned long worker) {
                                 try {
                                     work(worker);
                                 } catch (const channels::stopped_by_another&) {
                                 } catch (...) {
                                     made.stopped = true;  // the others too
                                     throw;
                                 }
                             });
    for (const auto& one : walkers) {
        if (one != nullptr) records.insert(records.end(), one->records().begin(), one->records().end());
    }
}

// The same operators may have been met by several threads, with the same values.
void unite(std::vector<trajectory_record>& records) {
    std::sort(records.begin(), records.end(),
              [](const trajectory_record& a, const trajectory_record& b) { return a.history < b.history; });
    std::size_t kept = 0;
    for (std::size_t i = 0; i < records.size(); ++i) {
        if (kept != 0 && records[kept - 1].history == records[i].history) {
            records[kept - 1].shots += records[i].shots;
        } else if (kept++ != i) {
            records[kept - 1] = std::move(records[i]);
        }
    }
    records.resize(kept);
}

// Sums stand in the order of the records, which follows from what has happened alone.
trajectory_result summed(std::vector<trajectory_record> records, std::size_t observables, unsigned long shots) {
    unite(records);
    trajectory_result result;
    result.distinct = records.size();
    const auto all = static_cast<double>(shots);
    for (std::size_t k = 0; k < observables; ++k) {
        thrust::complex<double> mean(0, 0);
        for (const trajectory_record& record : records) mean += static_cast<double>(record.shots) * record.values[k];
        mean /= all;
        double squares = 0;
        for (const trajectory_record& record : records) {
            squares += static_cast<double>(record.shots) * thrust::norm(record.values[k] - mean);
        }
        result.means.push_back(mean);
        result.standard_errors.push_back(shots > 1 ? std::sqrt(squares / all / (all - 1)) : 0);
    }
    result.records = std::move(records);
    return result;
}

// A usual operator that is no more than diag(a, b) on one qubit, as that of a decay, counts as diag(1, b / a): a factor
// of the whole state means nothing here, and half of the amplitudes then stay as they are.
template <class T>
void simplify_usual(std::vector<gates::operation<T>>& operations, const noise_list& noise) {
    for (unsigned long s = 0; s < noise.size(); ++s) {
        const noise_site& site = noise.site(s);
        const noise_channel& channel = noise.channel_at(s);
        if (!site.usual_is_gate || channel.is_mixture || site.qubits.size() != 1) continue;
        const auto& matrix = channel.operators[channel.usual].matrix;
        const auto factor = matrix[3] / matrix[0];
        if (matrix[1] != 0.0 || matrix[2] != 0.0 || thrust::abs(factor) > 1 || thrust::abs(matrix[0]) == 0) continue;
        gates::operation<T>& op = operations[site.gate];
        op = gates::named_operation<T>(*gates::find_gate("PH"), std::vector<double>{0.0}, site.qubits);
        op.coefficients[0] = thrust::complex<T>(static_cast<T>(factor.real()), static_cast<T>(factor.imag()));
    }
}

}  // namespace

trajectory_result combined(std::vector<trajectory_record> records) {
    const std::size_t observables = records.empty() ? 0 : records.front().values.size();
    unsigned long shots = 0;
    for (const trajectory_record& record : records) {
        if (record.values.size() != observables) refuse("Records of different numbers of observables");
        shots += record.shots;
    }
    return summed(std::move(records), observables, shots);
}

template <class T>
struct trajectories<T>::implementation {
    unsigned nqubits;
    std::vector<gates::operation<T>> operations;
    noise_list noise;
    typename list_runner<T>::calls calls;

    // What `run` keeps between two calls, the plans of every thread; for one size of the teams that share a state.
    std::vector<std::unique_ptr<list_runner<T>>> runners = {};
    int team = 0;

    // What `apply` keeps between two shots, for one number of threads.
    trajectory_settings of_one_shot = {};
    std::unique_ptr<experiment<T>> single = nullptr;
    std::unique_ptr<list_runner<T>> single_runner = nullptr;
    std::unique_ptr<walker<T>> one = nullptr;

    void keep_runners_for(int of_size) {
        if (team != of_size) runners.clear();
        team = of_size;
    }

    // Lets a walker work on a state, and returns false if the hook has ended that.
    template <class Work>
    bool by_one(PybindAmplixStateVectorCPU<T>& state, std::uint64_t seed,
                const typename program<T>::progress_hook& hook, Work work) {
        const int threads = state.num_threads;
        if (one == nullptr || single->threads_per_state != threads) {
            one.reset();
            single.reset(new experiment<T>{operations, calls, noise, nqubits, nullptr, of_one_shot, threads});
            single_runner = std::make_unique<list_runner<T>>(operations, calls, nqubits, threads);
            one = std::make_unique<walker<T>>(*single, *single_runner, true);
        }
        of_one_shot.seed = seed;
        single->stopped = false;
        of_one_shot.hook = [&](unsigned long, unsigned long) {
            if (hook && !hook(0, operations.size())) single->stopped = true;
        };
        try {
            work(*one);
        } catch (const channels::stopped_by_another&) {
            return false;
        }
        return true;
    }

    void check_initial(const PybindAmplixStateVectorCPU<T>& state) const {
        if (state.amplitudes == nullptr) refuse("The state has no amplitudes");
        if (state.nqubits == nqubits) return;
        refuse("The program has " + replay::counted(nqubits, "qubit") + ", the state " + std::to_string(state.nqubits));
    }

    void check(const trajectory_settings& settings) const {
        if (settings.outcomes != nullptr && settings.measured.empty()) refuse("Outcomes need measured qubits");
        for (const unsigned qubit : settings.measured) {
            if (qubit >= nqubits) refuse("Qubit " + std::to_string(qubit) + " is measured beyond the program's");
        }
        for (const auto& observable : settings.observables) {
            for (std::size_t t = 0; t < observable.flip_masks.size(); ++t) {
                if ((observable.flip_masks[t] | observable.phase_masks[t]) < 1ul << nqubits) continue;
                refuse("An observable acts on qubits that the program lacks");
            }
        }
    }
};

template <class T>
trajectories<T>::trajectories(const program<T>& list, std::vector<noise_channel> channels,
                              std::vector<noise_site> sites) {
    const auto& content = content_of(list.self);
    self.reset(new implementation{
        content.nqubits,
        content.operations,
        noise_list(std::move(channels), std::move(sites), content.operations.size(), content.nqubits),
        {}});
    simplify_usual(self->operations, self->noise);
    self->calls = list_runner<T>::prepared_calls(self->operations, self->nqubits);
}
template <class T>
trajectories<T>::~trajectories() = default;
template <class T>
trajectories<T>::trajectories(trajectories&&) noexcept = default;
template <class T>
trajectories<T>& trajectories<T>::operator=(trajectories&&) noexcept = default;

template <class T>
unsigned int trajectories<T>::nqubits() const {
    return content_of(self).nqubits;
}

template <class T>
unsigned long trajectories<T>::size() const {
    return content_of(self).operations.size();
}

template <class T>
double trajectories<T>::events_per_shot() const {
    return content_of(self).noise.events_per_shot();
}

template <class T>
trajectory_result trajectories<T>::run(const trajectory_settings& settings,
                                       const PybindAmplixStateVectorCPU<T>* initial) {
    implementation& content = content_of(self);
    if (initial != nullptr) content.check_initial(*initial);
    content.check(settings);
    const unsigned n = content.nqubits;
    const unsigned long state_bytes = sizeof(thrust::complex<T>) << n;
    // Where nothing can happen all shots are one state.
    const bool one_per_thread = n < fewest_shared_qubits && content.noise.events_per_shot() > 0;
    const int threads_per_state = one_per_thread ? 1 : settings.nthreads;
    content.keep_runners_for(storage::team_size(threads_per_state));

    experiment<T> made{content.operations,
                       content.calls,
                       content.noise,
                       n,
                       initial == nullptr ? nullptr : initial->amplitudes.get(),
                       settings,
                       threads_per_state};
    std::vector<trajectory_record> records;
    for (unsigned long done = 0; done < settings.shots; done += most_at_once) {
        const unsigned long count = std::min(settings.shots - done, most_at_once);
        draw_shots(made, settings.first_shot + done, count);
        const unsigned long noisy = made.shots.size();
        // What all gates touch; that a region is worth its while shows long before the sum could overflow.
        const unsigned long touched =
            one_per_thread ? state_bytes * std::min(noisy * content.operations.size(), 1ul << 20) : 0;
        const unsigned long workers = storage::most_bodies(std::max(1ul, noisy), touched, settings.nthreads);
        storage::refuse_beyond_free_memory(workers * (noisy == 0 ? 1 : 2) * state_bytes);
        make_shots(made, content.runners, workers, touched, records);
    }
    if (content.runners.size() * content.operations.size() > most_kept_gates) content.runners.clear();
    return summed(std::move(records), settings.observables.size(), settings.shots);
}

template <class T>
bool trajectories<T>::apply(PybindAmplixStateVectorCPU<T>& state, std::uint64_t seed, unsigned long shot,
                            std::uint32_t first_stream, const typename program<T>::progress_hook& hook,
                            unsigned long first_site) {
    implementation& content = content_of(self);
    content.check_initial(state);
    if (first_site != 0) {
        unsigned long site;
        first_events(seed, &shot, 1, first_stream, &site);
        if (site != first_site) refuse("Shot " + std::to_string(shot) + " has its first event elsewhere");
    }
    return content.by_one(state, seed, hook, [&](walker<T>& one) {
        one.apply({0, shot, 0, 0, 0}, first_site, state.amplitudes.get(), first_stream);
    });
}

template <class T>
unsigned long trajectories<T>::sites() const {
    return content_of(self).noise.size();
}

template <class T>
void trajectories<T>::first_events(std::uint64_t seed, const unsigned long* shots, unsigned long count,
                                   std::uint32_t first_stream, unsigned long* found) const {
    for (unsigned long s = 0; s < count; ++s) {
        waiting_shot shot{0, shots[s], 0, 0, 0};
        channels::draw_event(shot, content_of(self).noise, seed, 0, first_stream);
        found[s] = shot.site;
    }
}

template <class T>
bool trajectories<T>::walk(PybindAmplixStateVectorCPU<T>& state, unsigned long first, unsigned long last,
                           const typename program<T>::progress_hook& hook) {
    implementation& content = content_of(self);
    content.check_initial(state);
    if (first > last || last > sites()) refuse("A walk goes from one site to a later one, or to their number");
    return content.by_one(state, 0, hook, [&](walker<T>& one) { one.walk(first, last, state.amplitudes.get()); });
}

template <class T>
void sample_keyed(const PybindAmplixStateVectorCPU<T>& state, unsigned long* outcomes, const unsigned long* shots,
                  unsigned long count, std::uint64_t seed, std::uint32_t first_stream,
                  const std::vector<unsigned int>& qubits) {
    std::vector<unsigned long> words(count);
    shot_words(seed, shots, count, 0, first_stream + static_cast<std::uint32_t>(shot_stream::outcome), words.data());
    measurement::given_outputs engine{words.data()};
    const SVSequence<thrust::complex<T>> plain{state.amplitudes.get(), state.nqubits, state.size};
    if constexpr (std::is_same_v<T, double>) {
        pick_shots_of_any_norm(plain, outcomes, engine, count, state.num_threads, qubits);
    } else {
        pick_shots_of_any_norm(precise_view<SVSequence<thrust::complex<T>>>{plain}, outcomes, engine, count,
                               state.num_threads, qubits);
    }
}

#define VELACAMPLIX_INSTANTIATE(T)                                                                         \
    template class trajectories<T>;                                                                        \
    template void sample_keyed(const PybindAmplixStateVectorCPU<T>&, unsigned long*, const unsigned long*, \
                               unsigned long, std::uint64_t, std::uint32_t, const std::vector<unsigned int>&);
VELACAMPLIX_FOR_EACH_PRECISION(VELACAMPLIX_INSTANTIATE)

}  // namespace pbamplix::cpu
