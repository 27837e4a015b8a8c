#pragma once

#include "statevector/gates/operation.hpp"
#include "statevector/replay/schedule.hpp"

#include <list>
#include <optional>
#include <span>
#include <vector>

namespace velacamplix::channels {

// A list of gates that is run in many different parts, without a plan for each: blocks of the list have plans that
// stay, and only what a part leaves of its first and last block is planned for it. Whatever the parts, the bits are
// those of the gates one by one.
//
// An object serves one thread at a time. For a state of few amplitudes, prepared_calls of the list serve all.
template <class T>
class list_runner {
public:
    using calls = std::vector<kernels::kernel_call<T>>;

    // The loops of all gates, for a state too small for plans; none otherwise.
    static calls prepared_calls(std::span<const gates::operation<T>> operations, unsigned nbqbits);

    // `prepared` is what prepared_calls gives. Both lists stay where they are as long as the object lives.
    list_runner(std::span<const gates::operation<T>> operations, const calls& prepared, unsigned nbqbits, int nthreads);

    // Applies the gates first ... last - 1. The hook hears between passes; false ends the run, and the state is then
    // of no worth.
    bool run(unsigned long first, unsigned long last, thrust::complex<T>* state, const replay::run_hook& hook);

private:
    struct planned_part {
        unsigned long first, last;
        replay::schedule<T> schedule;
    };

    replay::schedule<T>* schedule_for(unsigned long first, unsigned long last, const replay::run_hook& hook);

    std::span<const gates::operation<T>> operations;
    const calls& prepared;
    unsigned nbqbits;
    int nthreads;
    unsigned long block;  // gates
    std::vector<std::optional<replay::schedule<T>>> whole_blocks;
    std::list<planned_part> parts;  // the last used comes first
};

}  // namespace velacamplix::channels
