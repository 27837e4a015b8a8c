#include "statevector/plan/layers.hpp"

#include "statevector/index/bits.hpp"

#include <algorithm>

namespace velacamplix::plan {
namespace {

// The gates that a layer leaves behind.
class left_behind {
public:
    explicit left_behind(exchange allowed) : allowed_(allowed) {}

    bool may_be_overtaken_by(const footprint& gate) const {
        if ((gate.mixed & (mixed_ | read_)) != 0 || (gate.read & mixed_) != 0) return false;
        return only_moves_ || gate.moves || allowed_ == exchange::up_to_rounding;
    }
    void add(const footprint& gate) {
        mixed_ |= gate.mixed;
        read_ |= gate.read;
        only_moves_ = only_moves_ && gate.moves;
    }

private:
    exchange allowed_;
    unsigned long mixed_ = 0;
    unsigned long read_ = 0;
    bool only_moves_ = true;
};

// A layer gives up looking for gates when it has left so many behind: planning stays linear in the number of gates.
constexpr std::size_t most_left_behind = 128;

}  // namespace

unsigned long fill_up(unsigned long local, unsigned nbqbits, unsigned wanted) {
    while (index::count_bits(local) < wanted) {
        const unsigned long free_bits = index::low_bits(nbqbits) & ~local;
        local |= free_bits & -free_bits;
    }
    return local;
}

namespace {

class dealer {
public:
    dealer(const std::vector<footprint>& gates, unsigned nbqbits, buffer_shape shape, exchange allowed)
        : gates_(gates),
          places_(std::min(shape.local_bits, nbqbits)),
          always_(index::low_bits(std::min(shape.run_bits, places_))),
          allowed_(allowed) {}

    bool is_done() const { return waiting_.empty() && fresh_ == gates_.size(); }

    // The next layer: the first choice takes local bits as the gates come. Where a gate then found no place, one with
    // its bits reserved is tried, and so on while that brings in more gates.
    layer next(unsigned nbqbits) {
        attempt best = take(always_);
        while (best.refused != 0 && index::count_bits(best.reserved | best.refused) <= places_) {
            attempt other = take(best.reserved | best.refused);
            if (other.gates.size() <= best.gates.size()) break;
            best = std::move(other);
        }
        waiting_ = std::move(best.left);
        fresh_ = best.fresh;
        if (best.gates.empty()) {  // the first gate mixes more than a buffer holds
            best.gates.push_back(waiting_.front());
            waiting_.erase(waiting_.begin());
            return {std::move(best.gates), 0};
        }
        return {std::move(best.gates), fill_up(best.local, nbqbits, places_)};
    }

private:
    struct attempt {
        unsigned long reserved;
        unsigned long local;
        unsigned long refused = 0;  // mixed bits of the first gate that only lacked places
        unsigned long fresh;
        std::vector<unsigned long> gates{}, left{};
    };

    attempt take(unsigned long reserved) const {
        attempt result{reserved, reserved, 0, fresh_};
        left_behind behind(allowed_);
        const auto offer = [&](unsigned long gate) {
            const footprint& f = gates_[gate];
            const bool free = behind.may_be_overtaken_by(f);
            if (free && index::count_bits(result.local | f.mixed) <= places_) {
                result.local |= f.mixed;
                result.gates.push_back(gate);
                return;
            }
            if (free && !f.moves && result.refused == 0) result.refused = f.mixed;
            behind.add(f);
            result.left.push_back(gate);
        };
        for (const unsigned long gate : waiting_) offer(gate);
        while (result.fresh < gates_.size() && result.left.size() < most_left_behind) offer(result.fresh++);
        return result;
    }

    const std::vector<footprint>& gates_;
    unsigned places_;
    unsigned long always_;
    exchange allowed_;
    std::vector<unsigned long> waiting_;  // in order; all gates from `fresh_` on come after them
    unsigned long fresh_ = 0;
};

}  // namespace

void deal_out(const std::vector<footprint>& gates, unsigned nbqbits, buffer_shape shape, exchange allowed,
              const std::function<bool(layer)>& take) {
    dealer deal(gates, nbqbits, shape, allowed);
    while (!deal.is_done() && take(deal.next(nbqbits))) {
    }
}

}  // namespace velacamplix::plan
