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

// Calls work(begin, end) for pieces of a share as long as there is a yes to the question.
template <class Work>
void in_pieces(unsigned long begin, unsigned long end, unsigned long piece, const std::function<bool()>& goes_on,
               Work work) {
    if (!goes_on) return work(begin, end);
    for (; begin < end && goes_on(); begin += std::min(piece, end - begin)) work(begin, std::min(begin + piece, end));
}

}  // namespace

template <class T>
void schedule<T>::run_pass(const pass<T>& next, thrust::complex<T>* state, const std::function<bool()>& goes_on,
                           std::optional<unsigned long> basis_state) {
    if (basis_state && !std::holds_alternative<chunked<T>>(next.work)) {
        storage::write_basis_state(state, 1ul << nbqbits, *basis_state, team);
    }
    if (const auto* const whole = std::get_if<whole_array<T>>(&next.work)) {
        const auto& call = whole->call;
        if (call.run == nullptr) return;
        const unsigned long piece = std::max(1ul, bytes_between_questions / std::max(1ul, call.bytes / call.units));
        storage::parallel_shares(call.units, call.bytes, team, [&](unsigned long begin, unsigned long end) {
            in_pieces(begin, end, piece, goes_on,
                      [&](unsigned long first, unsigned long last) { call.run(call, state, first, last); });
        });
    } else if (const auto* const small = std::get_if<in_place<T>>(&next.work)) {
        run_steps(*small, state);
    } else {
        const chunked<T>& work = std::get<chunked<T>>(next.work);
        const unsigned long chunk_bytes = work.chunk_size() * sizeof(thrust::complex<T>);
        const unsigned long piece =
            std::max(1ul, cached_bytes_between_questions / (chunk_bytes * std::max(1ul, work.steps.size())));
        const auto body = [&](unsigned long begin, unsigned long end, unsigned long lease) {
            thrust::complex<T>* const buffer = buffers.get() + work.chunk_size() * lease;
            if (basis_state) {
                basis_state_chunks<T> chunks(work, nbqbits, *basis_state, buffer);
                in_pieces(begin, end, piece, goes_on,
                          [&](unsigned long first, unsigned long last) { chunks.write(state, first, last); });
                return;
            }
            in_pieces(begin, end, piece, goes_on, [&](unsigned long first, unsigned long last) {
                run_chunks(work, state, nbqbits, first, last, buffer);
            });
        };
        storage::parallel_leases(work.chunk_count(nbqbits), sizeof(thrust::complex<T>) << nbqbits, team, body);
    }
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
        if (p.is_outdated) renew(p, operations, nbqbits);
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
    for (const pass<T>& next : all_passes) {
        run_pass(next, state, goes_on, basis_state);
        if (stopped) return false;
        done = next.done;
        basis_state.reset();
    }
    return !hook || hook(gate_count, gate_count);
}

template <class T>
unsigned long schedule<T>::run(std::span<const gates::operation<T>> operations, thrust::complex<T>* state,
                               const run_hook& hook) {
    make_ready(operations);
    bool stopping = false;
    for (std::size_t i = 0; i < all_passes.size(); ++i) {
        const pass<T>& next = all_passes[i];
        run_pass(next, state, {});
        if (hook && !stopping) stopping = !hook(next.done, gate_count);
        if (!stopping || !next.may_stop_after) continue;
        if (next.gates.empty()) return next.done;  // the end of a fused batch, in which no gate waits
        try {
            return complete_prefix(operations, i + 1, state);
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
