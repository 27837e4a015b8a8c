#include "statevector/distributed/stages.hpp"

#include "statevector/index/bits.hpp"

#include <algorithm>
#include <cmath>

namespace velacamplix::distributed {
namespace {

using index::count_bits;

// The gates that a stage leaves behind.
class left_behind {
public:
    left_behind(plan::exchange allowed, unsigned nbqbits) : allowed_(allowed), all_(index::low_bits(nbqbits)) {}

    bool may_be_overtaken_by(const footprint& gate) const {
        if ((gate.mixed & (mixed_ | read_)) != 0 || (gate.read & mixed_) != 0) return false;
        return only_moves_ || gate.moves || allowed_ == plan::exchange::up_to_rounding;
    }
    void add(const footprint& gate) {
        mixed_ |= gate.mixed;
        read_ |= gate.read;
        only_moves_ = only_moves_ && gate.moves;
        ++count_;
    }
    // Whether no gate will overtake them, or none is looked for: where only moves may overtake, few will, and planning
    // stays linear in the number of gates.
    bool is_full() const {
        constexpr unsigned long most = 128;
        if (mixed_ == all_) return true;
        return allowed_ == plan::exchange::exact && !only_moves_ && count_ >= most;
    }

private:
    plan::exchange allowed_;
    unsigned long all_;
    unsigned long mixed_ = 0;
    unsigned long read_ = 0;
    unsigned long count_ = 0;
    bool only_moves_ = true;
};

struct needed_gates {
    std::vector<unsigned long> gates;
    unsigned long needed;
};

class cutter {
public:
    cutter(const std::vector<footprint>& gates, unsigned nbqbits, unsigned places, plan::exchange allowed)
        : gates_(gates), nbqbits_(nbqbits), places_(places), allowed_(allowed) {}

    bool is_done() const { return waiting_.empty() && fresh_ == gates_.size(); }

    // The first choice takes qubits as the gates come. Where a gate then found no place, one with its qubits reserved
    // is tried, and so on while that brings in more gates.
    needed_gates next(unsigned long reserved) {
        attempt best = take(reserved);
        while (best.refused != 0 && count_bits(best.reserved | best.refused) <= places_) {
            attempt other = take(best.reserved | best.refused);
            if (other.gates.size() <= best.gates.size()) break;
            best = std::move(other);
        }
        waiting_ = std::move(best.left);
        fresh_ = best.fresh;
        return {std::move(best.gates), best.needed};
    }

private:
    struct attempt {
        unsigned long reserved;
        unsigned long needed;
        unsigned long refused = 0;  // qubits of the first gate that only lacked places
        unsigned long fresh;
        std::vector<unsigned long> gates{}, left{};
    };

    attempt take(unsigned long reserved) const {
        attempt result{reserved, reserved, 0, fresh_};
        left_behind behind(allowed_, nbqbits_);
        const auto offer = [&](unsigned long gate) {
            const footprint& f = gates_[gate];
            const bool free = behind.may_be_overtaken_by(f);
            if (free && count_bits(result.needed | f.needed) <= places_) {
                result.needed |= f.needed;
                result.gates.push_back(gate);
                return;
            }
            if (free && !f.moves && result.refused == 0) result.refused = f.needed;
            behind.add(f);
            result.left.push_back(gate);
        };
        for (const unsigned long gate : waiting_) offer(gate);
        while (result.fresh < gates_.size() && !behind.is_full()) offer(result.fresh++);
        return result;
    }

    const std::vector<footprint>& gates_;
    unsigned nbqbits_;
    unsigned places_;
    plan::exchange allowed_;
    std::vector<unsigned long> waiting_;  // in order; all gates from `fresh_` on come after them
    unsigned long fresh_ = 0;
};

// Every stage's local qubits: those it needs, then of those that were local before the ones needed soonest.
std::vector<stage> keep_what_is_needed_soonest(std::vector<needed_gates> cut, unsigned nbqbits, unsigned places,
                                               start from) {
    const std::size_t count = cut.size();
    // Of every qubit the first stage from s on that needs it; `count` where none does.
    std::vector<std::vector<std::size_t>> next_use(count + 1, std::vector<std::size_t>(nbqbits, count));
    for (std::size_t s = count; s-- > 0;) {
        for (unsigned q = 0; q < nbqbits; ++q) {
            next_use[s][q] = (cut[s].needed & index::bit(q)) != 0 ? s : next_use[s + 1][q];
        }
    }
    std::vector<stage> stages;
    unsigned long before = from == start::in_order ? index::low_bits(places) : index::low_bits(nbqbits);
    for (std::size_t s = 0; s < count; ++s) {
        unsigned long local = cut[s].needed;
        std::vector<unsigned> candidates;
        for (unsigned q = 0; q < nbqbits; ++q) {
            if ((before & ~local & index::bit(q)) != 0) candidates.push_back(q);
        }
        std::ranges::stable_sort(candidates, {}, [&](unsigned q) { return next_use[s + 1][q]; });
        for (unsigned i = 0; count_bits(local) < places; ++i) local |= index::bit(candidates[i]);
        if (!stages.empty() && stages.back().local == local) {
            stages.back().gates.insert(stages.back().gates.end(), cut[s].gates.begin(), cut[s].gates.end());
        } else {
            stages.push_back({std::move(cut[s].gates), local});
        }
        before = local;
    }
    return stages;
}

}  // namespace

double parts_sent(const std::vector<stage>& stages) {
    double parts = 0;
    for (std::size_t s = 1; s < stages.size(); ++s) {
        parts += 1 - std::ldexp(1.0, -static_cast<int>(count_bits(stages[s].local & ~stages[s - 1].local)));
    }
    return parts;
}

std::vector<stage> cut_into_stages(const std::vector<footprint>& gates, unsigned nbqbits, unsigned local,
                                   plan::exchange allowed, start from, unsigned long last_local) {
    const auto begun_with = [&](unsigned long reserved) {
        std::vector<needed_gates> cut;
        if (from == start::in_order) cut.push_back({{}, index::low_bits(local)});
        for (cutter cutting(gates, nbqbits, local, allowed); !cutting.is_done(); reserved = 0) {
            cut.push_back(cutting.next(reserved));
        }
        if (last_local != 0 || cut.empty()) cut.push_back({{}, last_local});
        return keep_what_is_needed_soonest(std::move(cut), nbqbits, local, from);
    };
    std::vector<stage> as_they_come = begun_with(0);
    std::vector<stage> lowest_first = begun_with(index::low_bits(local));
    return parts_sent(lowest_first) < parts_sent(as_they_come) ? lowest_first : as_they_come;
}

}  // namespace velacamplix::distributed
