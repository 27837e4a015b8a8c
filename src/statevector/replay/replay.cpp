#include "statevector/replay/replay.hpp"

#include "statevector/index/bits.hpp"
#include "statevector/storage/aligned_array.hpp"

#include <algorithm>

namespace velacamplix::replay {

template <class T>
schedule<T>::schedule(const std::vector<gates::operation<T>>& operations, unsigned qubits, int threads, bool fused)
    : nbqbits(qubits),
      nthreads(threads),
      gate_count(operations.size()),
      buffers(nullptr, &pbamplix::aligned_array_delete<thrust::complex<T>>) {
    const buffer_shape shape = choose_shape<T>(qubits, storage::team_size(threads));
    all_passes = fused ? make_fused_passes(operations, qubits, shape) : make_passes(operations, qubits, shape);
    for (const auto& pass : all_passes) chunk_size = std::max(chunk_size, pass.chunk_size());
}

template <class T>
void schedule<T>::run_pass(const chunk_pass<T>& pass, thrust::complex<T>* state) {
    if (pass.local == 0) {
        kernels::run_parallel(pass.whole_array, state, nthreads);
        return;
    }
    const unsigned long count = 1ul << (nbqbits - static_cast<unsigned>(std::popcount(pass.local)));
    const auto body = [&](unsigned long begin, unsigned long end) {
        const auto thread = static_cast<unsigned long>(omp_get_thread_num());
        run_chunks(pass, state, nbqbits, begin, end, buffers.get() + chunk_size * thread);
    };
    storage::parallel_blocks(count, sizeof(thrust::complex<T>) << nbqbits, nthreads, body);
}

// Applies the gates that stand before the last one of the passes so far and have not acted. Each of them commutes with
// those that overtook it.
template <class T>
unsigned long schedule<T>::complete_prefix(const std::vector<gates::operation<T>>& operations, std::size_t passes_run,
                                           thrust::complex<T>* state) {
    unsigned long prefix = 0;
    for (std::size_t i = 0; i < passes_run; ++i) prefix = std::max(prefix, all_passes[i].last);
    std::vector<bool> acted(prefix);
    for (std::size_t i = 0; i < passes_run; ++i) {
        for (const unsigned long gate : all_passes[i].gates) acted[gate] = true;
    }
    for (unsigned long gate = 0; gate < prefix; ++gate) {
        if (!acted[gate]) kernels::run_parallel(gates::prepare(operations[gate], nbqbits), state, nthreads);
    }
    return prefix;
}

template <class T>
unsigned long schedule<T>::run(const std::vector<gates::operation<T>>& operations, thrust::complex<T>* state,
                               const std::function<bool(unsigned long, unsigned long)>& hook) {
    if (buffers == nullptr && chunk_size != 0) {
        const auto threads = static_cast<unsigned long>(storage::team_size(nthreads));
        buffers = storage::make_amplitudes<T>(threads * chunk_size);
    }
    bool stopping = false;
    for (std::size_t i = 0; i < all_passes.size(); ++i) {
        chunk_pass<T>& pass = all_passes[i];
        if (pass.is_outdated) renew(pass, operations);
        run_pass(pass, state);
        if (hook && !stopping) stopping = !hook(pass.done, gate_count);
        if (!stopping || !pass.may_stop_after) continue;
        return pass.gates.empty() ? pass.done : complete_prefix(operations, i + 1, state);
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

// Resolves the gates of a pass anew; which gates it holds and where stays.
template <class T>
void schedule<T>::renew(chunk_pass<T>& pass, const std::vector<gates::operation<T>>& operations) {
    chunk_pass<T> renewed = make_pass(operations, {pass.gates, pass.local}, nbqbits);
    renewed.gates = std::move(pass.gates);
    renewed.first = pass.first;
    renewed.last = pass.last;
    renewed.done = pass.done;
    pass = std::move(renewed);
}

template class schedule<float>;
template class schedule<double>;

}  // namespace velacamplix::replay
