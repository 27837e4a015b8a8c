#pragma once

#include "statevector/gates/operation.hpp"
#include "statevector/index/bits.hpp"
#include "statevector/replay/schedule.hpp"

#include <velacamplix/program.hpp>

#include <algorithm>
#include <iterator>
#include <list>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

// What a program holds, for the files that define its members.

namespace velacamplix::replay {

inline constexpr unsigned int most_qubits = 63;  // a number of amplitudes has 64 bits

[[noreturn]] inline void refuse(const std::string& why) { throw std::invalid_argument(why); }

// "1 qubit", "3 qubits", "1 entry", "0 entries"
inline std::string counted(unsigned long number, std::string noun) {
    if (number != 1) noun = noun == "entry" ? "entries" : noun + "s";
    return std::to_string(number) + " " + noun;
}

// The program's content, which one that was moved from has lost.
template <class Implementation>
Implementation& content_of(const std::unique_ptr<Implementation>& self) {
    if (self == nullptr) refuse("This program has been moved from");
    return *self;
}

}  // namespace velacamplix::replay

namespace velacamplix::gradients {

template <class T>
struct plan_back;

}  // namespace velacamplix::gradients

namespace pbamplix::cpu {

using namespace velacamplix;

template <class T>
struct program<T>::implementation {
    unsigned int nqubits;
    std::vector<gates::operation<T>> operations;
    bool fusion = false;
    program_plan plan;

    // The gates first ... last - 1 as they are run.
    struct planned_range {
        unsigned long first, last;
        replay::schedule<T> schedule;

        bool contains(unsigned long gate) const { return first <= gate && gate < last; }
    };
    std::list<planned_range> ranges;              // the last used comes first
    static constexpr std::size_t most_parts = 8;  // kept beside the whole

    bool is_whole(const planned_range& range) const { return range.first == 0 && range.last == operations.size(); }

    std::span<const gates::operation<T>> gates_of(unsigned long first, unsigned long last) const {
        return std::span(operations).subspan(first, last - first);
    }

    // Null when the hook has stopped the planning.
    replay::schedule<T>* schedule_for(unsigned long first, unsigned long last, unsigned int state_qubits, int nthreads,
                                      const progress_hook& hook = {}) {
        using replay::counted, replay::most_qubits, replay::refuse;
        if (state_qubits > most_qubits) {
            refuse("A state has at most " + counted(most_qubits, "qubit") + ", not " + std::to_string(state_qubits));
        }
        if (state_qubits < nqubits) {
            refuse("The program has " + counted(nqubits, "qubit") + ", the state " + std::to_string(state_qubits));
        }
        const auto known = std::find_if(ranges.begin(), ranges.end(), [=](const planned_range& range) {
            return range.first == first && range.last == last;
        });
        if (known != ranges.end() && known->schedule.fits(state_qubits, nthreads)) {
            ranges.splice(ranges.begin(), ranges, known);
            return &known->schedule;
        }
        if (known != ranges.end()) ranges.erase(known);
        planned_range made{first,
                           last,
                           {gates_of(first, last), state_qubits, nthreads, fusion,
                            velacamplix::plan::first_level_cache_bytes(), hook}};
        if (!made.schedule.is_complete()) return nullptr;
        ranges.push_front(std::move(made));
        if (ranges.size() > most_parts + 1) {
            const auto oldest = std::prev(ranges.end());
            ranges.erase(is_whole(*oldest) ? std::prev(oldest) : oldest);
        }
        return &ranges.front().schedule;
    }

    // Of the reversed list, for gradients.
    std::shared_ptr<const gradients::plan_back<T>> way_back;

    void append(gates::operation<T> op, const std::vector<unsigned int>& controls) {
        op.controls |= index::mask_of(controls);
        operations.push_back(std::move(op));
        forget_plans();
    }

    void forget_plans() {
        ranges.clear();
        way_back.reset();
    }
};

}  // namespace pbamplix::cpu
