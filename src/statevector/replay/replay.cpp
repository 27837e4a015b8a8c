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

template <class T>
unsigned long schedule<T>::run(thrust::complex<T>* state,
                               const std::function<bool(unsigned long, unsigned long)>& hook) {
    if (buffers == nullptr && chunk_size != 0) {
        const auto threads = static_cast<unsigned long>(storage::team_size(nthreads));
        buffers = storage::make_amplitudes<T>(threads * chunk_size);
    }
    bool stopping = false;
    for (const auto& pass : all_passes) {
        run_pass(pass, state);
        if (hook && !stopping) stopping = !hook(pass.done, gate_count);
        if (stopping && pass.may_stop_after) return pass.done;
    }
    return gate_count;
}

template <class T>
void schedule<T>::replace(unsigned long gate, const gates::operation<T>& op) {
    const auto pass = std::partition_point(all_passes.begin(), all_passes.end(),
                                           [gate](const chunk_pass<T>& each) { return each.last <= gate; });
    if (pass->local == 0) {
        pass->whole_array = gates::prepare(op, nbqbits);
    } else {
        pass->steps[gate - pass->first] = resolve(op, locality(pass->local));
    }
}

template class schedule<float>;
template class schedule<double>;

}  // namespace velacamplix::replay
