#include "statevector/channels/list_runner.hpp"

#include <algorithm>

namespace velacamplix::channels {

namespace {

// From this many qubits on the gates take so much longer than their plan that every part has one of its own.
constexpr unsigned fewest_qubits_without_blocks = 20;
constexpr unsigned long block_gates_per_qubit = 8;
constexpr std::size_t most_parts = 8;
// Gates of a small state between two questions.
constexpr unsigned long gates_at_once = 256;

}  // namespace

template <class T>
auto list_runner<T>::prepared_calls(std::span<const gates::operation<T>> operations, unsigned nbqbits) -> calls {
    calls prepared;
    if (nbqbits >= replay::fewest_qubits_worth_planning<T>) return prepared;
    prepared.reserve(operations.size());
    for (const auto& op : operations) prepared.push_back(gates::prepare(op, nbqbits));
    return prepared;
}

template <class T>
list_runner<T>::list_runner(std::span<const gates::operation<T>> all, const calls& of_small_state, unsigned qubits,
                            int threads)
    : operations(all),
      prepared(of_small_state),
      nbqbits(qubits),
      nthreads(threads),
      block(qubits < fewest_qubits_without_blocks ? block_gates_per_qubit * qubits : std::max(1ul, all.size())) {
    if (nbqbits >= replay::fewest_qubits_worth_planning<T>) whole_blocks.resize((all.size() + block - 1) / block);
}

template <class T>
replay::schedule<T>* list_runner<T>::schedule_for(unsigned long first, unsigned long last,
                                                  const replay::run_hook& hook) {
    const auto planned = [&] {
        return replay::schedule<T>(operations.subspan(first, last - first), nbqbits, nthreads, false,
                                   plan::first_level_cache_bytes(), hook);
    };
    const unsigned long number = first / block;
    if (first == number * block && last == std::min(first + block, operations.size())) {
        auto& kept = whole_blocks[number];
        if (!kept) {
            auto made = planned();
            if (!made.is_complete()) return nullptr;
            kept.emplace(std::move(made));
        }
        return &*kept;
    }
    const auto known = std::find_if(parts.begin(), parts.end(),
                                    [=](const planned_part& part) { return part.first == first && part.last == last; });
    if (known != parts.end()) {
        parts.splice(parts.begin(), parts, known);
    } else {
        auto made = planned();
        if (!made.is_complete()) return nullptr;
        parts.push_front({first, last, std::move(made)});
        if (parts.size() > most_parts) parts.pop_back();
    }
    return &parts.front().schedule;
}

template <class T>
bool list_runner<T>::run(unsigned long first, unsigned long last, thrust::complex<T>* state,
                         const replay::run_hook& hook) {
    bool goes_on = true;
    if (whole_blocks.empty()) {
        for (unsigned long gate = first; gate < last && goes_on; ++gate) {
            kernels::run_serial(prepared[gate], state);
            if (hook && (gate - first) % gates_at_once == gates_at_once - 1) goes_on = hook(0, 0);
        }
        return goes_on;
    }
    const replay::run_hook heard = [&](unsigned long, unsigned long) { return goes_on = !hook || hook(0, 0); };
    const bool is_whole = first == 0 && last == operations.size();  // a run without events, whose plan stays
    while (first < last && goes_on) {
        const unsigned long end = is_whole ? last : std::min(last, (first / block + 1) * block);
        replay::schedule<T>* const schedule = schedule_for(first, end, heard);
        if (schedule == nullptr) return false;
        if (!schedule->run_to_end(operations.subspan(first, end - first), state, heard)) return false;
        first = end;
    }
    return goes_on;
}

template class list_runner<float>;
template class list_runner<double>;

}  // namespace velacamplix::channels
