#include "statevector/replay/schedule.hpp"

#include "statevector/index/bits.hpp"
#include "statevector/storage/aligned_array.hpp"
#include "statevector/storage/basis_state.hpp"

#include <algorithm>
#include <atomic>
#include <new>
#include <thread>

namespace velacamplix::replay {

template <class T>
schedule<T>::schedule(std::span<const gates::operation<T>> operations, unsigned qubits, int threads, bool fused,
                      unsigned long cache_bytes, const run_hook& hook)
    : nbqbits(qubits),
      team(storage::team_size(threads)),
      gate_count(operations.size()),
      buffers(nullptr, &pbamplix::aligned_array_delete<thrust::complex<T>>) {
    planning_hook go_on;
    if (hook) go_on = [&] { return complete = hook(0, gate_count); };
    all_passes = fused ? make_fused_passes(operations, qubits, go_on)
                       : make_passes(operations, qubits, plan::choose_shape<T>(qubits, team, cache_bytes), go_on);
}

namespace {

// What takes about a millisecond, in bytes that gates touch: in a chunk, and in the whole array.
constexpr unsigned long cached_bytes_between_questions = 32ul << 20, bytes_between_questions = 1ul << 20;

// Pieces of a thread's share, at least, if there are so many chunks: threads end a pass by so much apart.
constexpr unsigned long pieces_in_a_share = 64;

}  // namespace

template <class T>
std::vector<storage::staged_work::stage> schedule<T>::stages() const {
    std::vector<storage::staged_work::stage> result;
    for (const pass<T>& p : all_passes) {
        if (const auto* const whole = std::get_if<whole_array<T>>(&p.work)) {
            const auto& call = whole->call;
            const unsigned long units = call.run == nullptr ? 0 : call.units;
            result.push_back({units, std::max(1ul, bytes_between_questions / (call.bytes / std::max(1ul, units) + 1))});
        } else if (const auto* const work = std::get_if<chunked<T>>(&p.work)) {
            const unsigned long chunks = work->chunk_count(nbqbits);
            const unsigned long bytes = work->chunk_size() * sizeof(thrust::complex<T>) * work->steps.size() + 1;
            const unsigned long share = chunks / static_cast<unsigned long>(team);
            result.push_back(
                {chunks, std::max(1ul, std::min(cached_bytes_between_questions / bytes, share / pieces_in_a_share))});
        } else {
            result.push_back({1, 1});
        }
    }
    return result;
}

template <class T>
void schedule<T>::run_passes(std::size_t first, thrust::complex<T>* state, const std::function<bool()>& goes_on,
                             const std::function<bool(std::size_t)>& between,
                             std::optional<unsigned long> basis_state) {
    const auto* const start = basis_state ? std::get_if<chunked<T>>(&all_passes[first].work) : nullptr;
    if (basis_state && start == nullptr) storage::write_basis_state(state, 1ul << nbqbits, *basis_state, team);
    std::vector<std::optional<basis_state_chunks<T>>> starting(start == nullptr ? 0 : static_cast<std::size_t>(team));
    const auto body = [&](std::size_t number, unsigned long begin, unsigned long end, unsigned long share_end,
                          unsigned long lease) {
        if (goes_on && !goes_on()) return false;
        const pass_work<T>& now = all_passes[number].work;
        if (const auto* const whole = std::get_if<whole_array<T>>(&now)) {
            whole->call.run(whole->call, state, begin, end);
        } else if (const auto* const small = std::get_if<in_place<T>>(&now)) {
            run_steps(*small, state);
        } else {
            const chunked<T>& work = std::get<chunked<T>>(now);
            thrust::complex<T>* const buffer = buffers.get() + work.chunk_size() * lease;
            if (&work == start) {
                if (!starting[lease]) starting[lease].emplace(work, nbqbits, *basis_state, buffer);
                starting[lease]->write(state, begin, end);
            } else {
                run_chunks(work, state, nbqbits, begin, end, share_end, buffer);
            }
        }
        return true;
    };
    shared_out->work(first, body, between);
}

// Amplitudes that the buffers of any one pass take together. Never more than the state has.
template <class T>
unsigned long schedule<T>::buffers_size() const {
    const unsigned long bytes = sizeof(thrust::complex<T>) << nbqbits;
    unsigned long size = 0;
    for (const pass<T>& p : all_passes) {
        if (const auto* const work = std::get_if<chunked<T>>(&p.work)) {
            size = std::max(size, work->chunk_size() * storage::most_bodies(work->chunk_count(nbqbits), bytes, team));
        }
    }
    return size;
}

// Applies the gates that stand before the last one of the passes so far and have not acted. Each of them commutes with
// those that overtook it.
template <class T>
unsigned long schedule<T>::complete_prefix(std::span<const gates::operation<T>> operations, std::size_t passes_run,
                                           thrust::complex<T>* state) {
    unsigned long prefix = 0;
    for (std::size_t i = 0; i < passes_run; ++i) prefix = std::max(prefix, all_passes[i].last);
    std::vector<bool> acted(prefix);
    for (std::size_t i = 0; i < passes_run; ++i) {
        for (const unsigned long gate : all_passes[i].gates) acted[gate] = true;
    }
    // All are prepared before any acts: that may lack memory.
    std::vector<kernels::kernel_call<T>> missing;
    for (unsigned long gate = 0; gate < prefix; ++gate) {
        if (!acted[gate]) missing.push_back(gates::prepare(operations[gate], nbqbits));
    }
    for (const auto& call : missing) kernels::run_parallel(call, state, team);
    return prefix;
}

// All the memory that a run takes, before the first gate acts.
template <class T>
void schedule<T>::make_ready(std::span<const gates::operation<T>> operations) {
    if (buffers == nullptr && buffers_size() != 0) buffers = storage::make_amplitudes<T>(buffers_size());
    for (pass<T>& p : all_passes) {
        if (!p.is_outdated) continue;
        renew(p, operations, nbqbits);
        shared_out.reset();
    }
    if (shared_out == nullptr) {
        const unsigned long bytes = sizeof(thrust::complex<T>) << nbqbits;
        shared_out = std::make_unique<storage::staged_work>(stages(), bytes, team);
    }
}

template <class T>
bool schedule<T>::run_to_end(std::span<const gates::operation<T>> operations, thrust::complex<T>* state,
                             const run_hook& hook, std::optional<unsigned long> basis_state) {
    make_ready(operations);
    const auto caller = std::this_thread::get_id();
    std::atomic<bool> stopped = false;
    unsigned long done = 0;
    std::function<bool()> goes_on;
    if (hook) {
        goes_on = [&] {
            if (stopped || std::this_thread::get_id() != caller) return !stopped;
            try {
                stopped = !hook(done, gate_count);
            } catch (...) {
                stopped = true;  // the others too
                throw;
            }
            return !stopped;
        };
    }
    if (basis_state && all_passes.empty()) storage::write_basis_state(state, 1ul << nbqbits, *basis_state, team);
    if (!all_passes.empty()) {
        const auto between = [&](std::size_t number) {
            done = all_passes[number].done;
            return !stopped;
        };
        run_passes(0, state, goes_on, std::cref(between), basis_state);
        if (stopped) return false;
    }
    return !hook || hook(gate_count, gate_count);
}

template <class T>
unsigned long schedule<T>::run(std::span<const gates::operation<T>> operations, thrust::complex<T>* state,
                               const run_hook& hook) {
    make_ready(operations);
    std::size_t passes_run = 0;
    bool stopping = false;
    const auto between = [&](std::size_t number) {
        const pass<T>& last = all_passes[number];
        passes_run = number + 1;
        if (hook && !stopping) stopping = !hook(last.done, gate_count);
        return !stopping || !last.may_stop_after;
    };
    while (passes_run < all_passes.size()) {
        run_passes(passes_run, state, {}, std::cref(between));
        const pass<T>& last = all_passes[passes_run - 1];
        if (!stopping || !last.may_stop_after) break;
        if (last.gates.empty()) return last.done;  // the end of a fused batch, in which no gate waits
        try {
            return complete_prefix(operations, passes_run, state);
        } catch (const std::bad_alloc&) {
            // The gates that were overtaken act in the passes they wait for, which needs no memory: on to the next end.
        }
    }
    return gate_count;
}

template <class T>
void schedule<T>::outdate(unsigned long gate) {
    if (pass_of.empty()) {
        pass_of.resize(gate_count);
        for (std::size_t i = 0; i < all_passes.size(); ++i) {
            for (const unsigned long g : all_passes[i].gates) pass_of[g] = i;
        }
    }
    all_passes[pass_of[gate]].is_outdated = true;
}

template class schedule<float>;
template class schedule<double>;

}  // namespace velacamplix::replay
