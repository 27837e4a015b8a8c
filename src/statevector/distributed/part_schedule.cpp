#include "statevector/distributed/part_schedule.hpp"

#include "statevector/index/bits.hpp"
#include "statevector/plan/buffer_shape.hpp"
#include "statevector/storage/aligned_array.hpp"
#include "statevector/storage/parallel.hpp"

#include <algorithm>

namespace velacamplix::distributed {

template <class T>
part_schedule<T>::part_schedule(std::span<const gates::operation<T>> operations, unsigned nbqbits, unsigned part_bits,
                                int nthreads)
    : nbqbits_(nbqbits),
      part_bits_(part_bits),
      team_(storage::team_size(nthreads)),
      buffers_(nullptr, &pbamplix::aligned_array_delete<thrust::complex<T>>) {
    const unsigned long whole = index::low_bits(part_bits);
    unsigned long buffers_size = 0;
    const auto add = [&](plan::layer layer) {
        std::vector<const gates::operation<T>*> taken;
        for (const unsigned long gate : layer.gates) taken.push_back(&operations[gate]);
        if (layer.local == 0 || layer.local == whole || taken.size() == 1) {
            auto steps = replay::steps_of(taken, replay::locality(whole));
            // A single gate runs where it is if threads can share its loop; a gate larger than a buffer always does.
            const bool is_shared = std::holds_alternative<kernels::kernel_call<T>>(steps[0].work);
            if (layer.local == 0 || layer.local == whole || is_shared) {
                passes_.push_back(std::move(steps));
                return true;
            }
        }
        replay::chunked<T> chunks{layer.local, replay::gathering(layer.local),
                                  replay::steps_of(taken, replay::locality(layer.local))};
        const unsigned long bytes = sizeof(thrust::complex<T>) << part_bits;
        const unsigned long bodies = storage::most_bodies(chunks.chunk_count(part_bits), bytes, team_);
        buffers_size = std::max(buffers_size, chunks.chunk_size() * bodies);
        passes_.push_back(std::move(chunks));
        return true;
    };
    const auto shape = plan::choose_shape<T>(part_bits, team_, plan::first_level_cache_bytes());
    plan::deal_out(plan::footprints_of<T>(operations), part_bits, shape, plan::exchange::exact, add);
    if (buffers_size != 0) buffers_ = storage::make_amplitudes<T>(buffers_size);
}

template <class T>
void part_schedule<T>::run_steps(const std::vector<replay::step<T>>& steps, unsigned long number,
                                 thrust::complex<T>* part) const {
    const unsigned long base = number << part_bits_;
    for (const replay::step<T>& s : steps) {
        if (!s.acts_on(base)) continue;
        const auto* const call = std::get_if<kernels::kernel_call<T>>(&s.work);
        if (call != nullptr) {
            kernels::run_parallel(*call, part, team_);
        } else {
            s.run(part, base);
        }
    }
}

template <class T>
void part_schedule<T>::run_chunks(const replay::chunked<T>& chunks, unsigned long number,
                                  thrust::complex<T>* part) const {
    const unsigned long count = chunks.chunk_count(part_bits_);
    const auto body = [&](unsigned long begin, unsigned long end, unsigned long lease) {
        const unsigned long share_end = number * count + end;
        replay::run_chunks(chunks, part, nbqbits_, number * count + begin, share_end, share_end,
                           buffers_.get() + chunks.chunk_size() * lease, number << part_bits_);
    };
    storage::parallel_leases(count, sizeof(thrust::complex<T>) << part_bits_, team_, body);
}

template <class T>
void part_schedule<T>::run(unsigned long number, thrust::complex<T>* part, const std::function<void()>& after_pass) {
    for (const work& pass : passes_) {
        if (const auto* const steps = std::get_if<std::vector<replay::step<T>>>(&pass)) {
            run_steps(*steps, number, part);
        } else {
            run_chunks(std::get<replay::chunked<T>>(pass), number, part);
        }
        after_pass();
    }
}

template class part_schedule<float>;
template class part_schedule<double>;

}  // namespace velacamplix::distributed
