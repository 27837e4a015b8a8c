#include "statevector/replay/pass.hpp"

#include "statevector/fusion/fusion.hpp"
#include "statevector/index/bits.hpp"

#include <algorithm>

namespace velacamplix::replay {

namespace {

using gates::operation;

// Puts the planning hook's question after every so many gates.
class question {
public:
    explicit question(const planning_hook& go_on) : go_on_(go_on) {}

    bool after(unsigned long gates) {
        if (!go_on_ || gates < next_) return true;
        next_ = gates + gates_between_questions;
        return go_on_();
    }

private:
    const planning_hook& go_on_;
    unsigned long next_ = gates_between_questions;
};

template <class T>
std::vector<const operation<T>*> pointers_to(const std::vector<operation<T>>& operations) {
    std::vector<const operation<T>*> pointers;
    pointers.reserve(operations.size());
    for (const operation<T>& op : operations) pointers.push_back(&op);
    return pointers;
}

}  // namespace

// A gate that would be alone in its chunks runs over the whole array, unless it is a product, which has no such loop.
template <class T>
pass_work<T> make_work(const std::vector<const operation<T>*>& operations, unsigned long local, unsigned nbqbits) {
    const bool alone = operations.size() == 1 && operations[0]->kind != gates::gate_kind::product;
    const bool fits = local == index::low_bits(nbqbits);
    if (local == 0 || (alone && !fits)) return whole_array<T>{gates::prepare(*operations[0], nbqbits)};
    if (fits) return in_place<T>{steps_of(operations, locality(local))};
    return chunked<T>{local, gathering(local), steps_of(operations, locality(local))};
}

template <class T>
void renew(pass<T>& outdated, std::span<const operation<T>> operations, unsigned nbqbits) {
    std::vector<const operation<T>*> taken;
    taken.reserve(outdated.gates.size());
    for (const unsigned long gate : outdated.gates) taken.push_back(&operations[gate]);
    unsigned long local = 0;
    if (std::holds_alternative<in_place<T>>(outdated.work)) local = index::low_bits(nbqbits);
    if (const auto* const in_chunks = std::get_if<chunked<T>>(&outdated.work)) local = in_chunks->local;
    outdated.work = make_work(taken, local, nbqbits);
    outdated.is_outdated = false;
}

template <class T>
std::vector<pass<T>> make_passes(std::span<const operation<T>> operations, unsigned nbqbits, plan::buffer_shape shape,
                                 const planning_hook& go_on) {
    std::vector<pass<T>> passes;
    unsigned long done = 0;
    question asked(go_on);
    const auto add = [&](plan::layer layer) {
        std::vector<const operation<T>*> taken;
        for (const unsigned long gate : layer.gates) taken.push_back(&operations[gate]);
        pass<T>& made = passes.emplace_back();
        made.work = make_work(taken, layer.local, nbqbits);
        const auto [first, last] = std::minmax_element(layer.gates.begin(), layer.gates.end());
        made.first = *first;
        made.last = *last + 1;
        made.done = done += layer.gates.size();
        made.gates = std::move(layer.gates);
        return asked.after(done);
    };
    plan::deal_out(plan::footprints_of<T>(operations), nbqbits, shape, plan::exchange::exact, add);
    return passes;
}

template <class T>
std::vector<pass<T>> make_fused_passes(std::span<const operation<T>> operations, unsigned nbqbits,
                                       const planning_hook& go_on) {
    const unsigned long length = fusion::batch_length(nbqbits);
    std::vector<pass<T>> passes;
    question asked(go_on);
    for (unsigned long first = 0; first < operations.size() && asked.after(first); first += length) {
        const unsigned long last = std::min(first + length, operations.size());
        const auto layers = fusion::fuse(operations.subspan(first, last - first), nbqbits);
        for (std::size_t i = 0; i < layers.size(); ++i) {
            pass<T>& made = passes.emplace_back();
            made.work = make_work(pointers_to(layers[i].operations), layers[i].local, nbqbits);
            made.first = first;
            made.last = last;
            made.done = first + (last - first) * (i + 1) / layers.size();
            made.may_stop_after = i + 1 == layers.size();
        }
    }
    return passes;
}

template <class T>
void run_steps(const in_place<T>& work, thrust::complex<T>* state) {
    for (const step<T>& s : work.steps) {
        if (s.acts_on(0)) s.run(state, 0);
    }
}

template <class T>
void run_chunks(const chunked<T>& work, thrust::complex<T>* state, unsigned nbqbits, unsigned long begin,
                unsigned long end, unsigned long share_end, thrust::complex<T>* buffer, unsigned long origin) {
    const unsigned long outer = index::low_bits(nbqbits) & ~work.local;
    const unsigned long runs = work.chunks.offsets.size();
    const unsigned long steps = work.steps.size();
    for (unsigned long c = begin; c < end; ++c) {
        const unsigned long base = index::deposit(c, outer);
        const bool acts =
            std::any_of(work.steps.begin(), work.steps.end(), [base](const step<T>& s) { return s.acts_on(base); });
        if (!acts) continue;
        const thrust::complex<T>* const next = state + (index::deposit(c + 1 < share_end ? c + 1 : c, outer) - origin);
        copy_in(work.chunks, state + (base - origin), buffer);
        for (unsigned long i = 0; i < steps; ++i) {
            if (work.steps[i].acts_on(base)) work.steps[i].run(buffer, base);
            fetch_runs(work.chunks, next, runs * i / steps, runs * (i + 1) / steps);
        }
        copy_out(work.chunks, buffer, state + (base - origin));
    }
}

template <class T>
basis_state_chunks<T>::basis_state_chunks(const chunked<T>& work, unsigned nbqbits, unsigned long basis_state,
                                          thrust::complex<T>* buffer)
    : work_(work),
      outer_(index::low_bits(nbqbits) & ~work.local),
      choosing_(0),
      basis_state_(basis_state),
      buffer_(buffer) {
    for (const step<T>& s : work.steps) choosing_ |= s.choosing_bits();
    choosing_ &= outer_;
}

template <class T>
void basis_state_chunks<T>::write(thrust::complex<T>* state, unsigned long begin, unsigned long end) {
    const unsigned long free = outer_ & ~choosing_;
    const unsigned free_bits = index::count_bits(free);
    for (unsigned long c = begin; c < end; ++c) {
        const unsigned long base = index::deposit(c, free) | index::deposit(c >> free_bits, choosing_);
        work_on(base);
        copy_out(work_.chunks, buffer_, state + base);
    }
}

// Leaves the chunk's amplitudes in the buffer.
template <class T>
void basis_state_chunks<T>::work_on(unsigned long base) {
    const bool has_the_one = base == (basis_state_ & outer_);
    const unsigned long choice = base & choosing_;
    if (!has_the_one && zeros_ == choice) return;
    std::fill_n(buffer_, work_.chunk_size(), thrust::complex<T>(0, 0));
    if (has_the_one) buffer_[index::extract(basis_state_, work_.local)] = thrust::complex<T>(1, 0);
    for (const step<T>& s : work_.steps) {
        if (s.acts_on(base)) s.run(buffer_, base);
    }
    if (has_the_one) {
        zeros_.reset();
    } else {
        zeros_ = choice;
    }
}

#define VELACAMPLIX_INSTANTIATE(T)                                                                                  \
    template pass_work<T> make_work(const std::vector<const operation<T>*>&, unsigned long, unsigned);              \
    template void renew(pass<T>&, std::span<const operation<T>>, unsigned);                                         \
    template std::vector<pass<T>> make_passes(std::span<const operation<T>>, unsigned, plan::buffer_shape,          \
                                              const planning_hook&);                                                \
    template std::vector<pass<T>> make_fused_passes(std::span<const operation<T>>, unsigned, const planning_hook&); \
    template void run_steps(const in_place<T>&, thrust::complex<T>*);                                               \
    template void run_chunks(const chunked<T>&, thrust::complex<T>*, unsigned, unsigned long, unsigned long,        \
                             unsigned long, thrust::complex<T>*, unsigned long);                                    \
    template class basis_state_chunks<T>;
VELACAMPLIX_FOR_EACH_PRECISION(VELACAMPLIX_INSTANTIATE)

}  // namespace velacamplix::replay
