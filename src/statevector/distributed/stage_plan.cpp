#include "statevector/distributed/part_schedule.hpp"
#include "statevector/distributed/renamed.hpp"
#include "statevector/distributed/stages.hpp"
#include "statevector/index/bits.hpp"
#include "statevector/replay/program_content.hpp"

#include <velacamplix/stages.hpp>

#include <algorithm>
#include <numeric>
#include <optional>
#include <stdexcept>
#include <utility>

namespace velacamplix::distributed {
namespace {

// A stage with all that is known of it.
struct placed_stage {
    unsigned long incoming = 0;       // bits of a rank's number whose qubits come into the parts before it,
    unsigned long flipped = 0;        // and those that are read flipped as it begins
    std::vector<unsigned int> place;  // of every qubit while its gates act
    std::vector<unsigned long> gates;
    std::vector<std::pair<unsigned int, unsigned int>> swaps;  // of places, when all gates have acted

    unsigned exchanged() const { return index::count_bits(incoming); }
};

// Gives qubits their places, stage by stage. Qubits that come in take the highest places of the parts, from where as
// many others have gone.
class placement {
public:
    placement(const std::vector<stage>& stages, unsigned nbqbits, unsigned part_bits, start from)
        : part_bits_(part_bits), place_(nbqbits) {
        std::iota(place_.begin(), place_.end(), 0u);
        if (from == start::anywhere) sort_by_departure(stages);
    }

    const std::vector<unsigned int>& places() const { return place_; }

    // Exchanges of places after which those who go stand at the highest places of the parts.
    std::vector<std::pair<unsigned int, unsigned int>> move_up(unsigned long going) {
        const unsigned first = part_bits_ - index::count_bits(going);
        std::vector<std::pair<unsigned int, unsigned int>> swaps;
        for (unsigned q = 0; q < place_.size(); ++q) {
            if ((going & index::bit(q)) == 0 || place_[q] >= first) continue;
            for (unsigned p = part_bits_; p-- > first;) {
                const unsigned other = standing_at(p);
                if ((going & index::bit(other)) != 0) continue;
                swaps.emplace_back(place_[q], p);
                std::swap(place_[q], place_[other]);
                break;
            }
        }
        return swaps;
    }

    // Lets them change places with those who come, and returns the bits of a rank's number where they now are.
    unsigned long exchange(unsigned long coming) {
        const unsigned count = index::count_bits(coming);
        unsigned long bits = 0;
        for (unsigned q = 0; q < place_.size(); ++q) {
            if ((coming & index::bit(q)) != 0) bits |= index::bit(place_[q] - part_bits_);
        }
        unsigned long mask = bits;
        for (unsigned i = 0; i < count; ++i, mask &= mask - 1) {
            const unsigned outside = part_bits_ + static_cast<unsigned>(std::countr_zero(mask));
            std::swap(place_[standing_at(outside)], place_[standing_at(part_bits_ - count + i)]);
        }
        return bits;
    }

    // Exchanges of places after which qubit names[p] stands at place p, for all places of a part.
    std::vector<std::pair<unsigned int, unsigned int>> put_in_order(const std::vector<unsigned int>& names) {
        std::vector<unsigned int> from;
        for (unsigned p = 0; p < part_bits_; ++p) from.push_back(place_[names[p]]);
        for (unsigned p = 0; p < part_bits_; ++p) place_[names[p]] = p;
        return exchanges_for(from);
    }

private:
    unsigned standing_at(unsigned place) const {
        return static_cast<unsigned>(std::find(place_.begin(), place_.end(), place) - place_.begin());
    }

    // The qubits of the first stage, those who go first at the highest places, then all others.
    void sort_by_departure(const std::vector<stage>& stages) {
        const auto stays = [&](unsigned q) {
            std::size_t s = 0;
            while (s < stages.size() && (stages[s].local & index::bit(q)) != 0) ++s;
            return s;
        };
        std::vector<unsigned int> order(place_.size());
        std::iota(order.begin(), order.end(), 0u);
        std::ranges::stable_sort(order, std::greater<>(), stays);
        for (unsigned p = 0; p < order.size(); ++p) place_[order[p]] = p;
    }

    unsigned part_bits_;
    std::vector<unsigned int> place_;
};

}  // namespace
}  // namespace velacamplix::distributed

namespace pbamplix::cpu {

using distributed::placed_stage;
using replay::content_of;
using replay::counted;
using replay::refuse;

template <class T>
struct stage_plan<T>::implementation {
    unsigned int nqubits;
    unsigned int part_bits;
    bool back_in_order;
    std::vector<gates::operation<T>> operations;
    double sent = 0;
    std::vector<placed_stage> stages;
    qubit_places at_end;

    // Gates that act while a rank's number is read with the same bits flipped.
    struct segment {
        unsigned long flipped;
        distributed::part_schedule<T> schedule;
    };
    struct prepared_stage {
        unsigned long stage;
        int team;
        std::vector<segment> segments;
        unsigned long passes = 0;
    };
    std::optional<prepared_stage> prepared;  // the one that ran last

    unsigned long ranks() const { return 1ul << (nqubits - part_bits); }
    unsigned long part_size() const { return 1ul << part_bits; }

    // The bit of a rank's number that a plain flip flips; 0 for all other gates and where it acts inside the parts.
    unsigned long flip_of(const gates::operation<T>& op, const std::vector<unsigned int>& place) const {
        if (!distributed::is_plain_flip(op) || place[op.targets[0]] < part_bits) return 0;
        return index::bit(place[op.targets[0]] - part_bits);
    }

    void plan_stages(const std::vector<unsigned int>& name, const stage_settings& settings) {
        const auto from = settings.from_zeros ? distributed::start::anywhere : distributed::start::in_order;
        unsigned long home = 0;
        for (unsigned int q = 0; q < part_bits && settings.back_in_order; ++q) home |= index::bit(name[q]);
        auto cut = distributed::cut_into_stages(distributed::footprints_of(operations), nqubits, part_bits,
                                                velacamplix::plan::exchange::exact, from, home);
        sent = distributed::parts_sent(cut);
        distributed::placement places(cut, nqubits, part_bits, from);
        unsigned long flipped = 0;
        for (std::size_t s = 0; s < cut.size(); ++s) {
            placed_stage next;
            next.flipped = flipped;
            if (s > 0) {
                stages.back().swaps = places.move_up(cut[s - 1].local & ~cut[s].local);
                next.incoming = places.exchange(cut[s].local & ~cut[s - 1].local);
            }
            next.place = places.places();
            next.gates = std::move(cut[s].gates);
            for (const unsigned long gate : next.gates) flipped ^= flip_of(operations[gate], next.place);
            stages.push_back(std::move(next));
        }
        if (settings.back_in_order) stages.back().swaps = places.put_in_order(name);
        at_end.flipped = flipped;
        for (unsigned int q = 0; q < nqubits; ++q) at_end.places.push_back(places.places()[name[q]]);
    }

    void prepare(unsigned long number, int nthreads) {
        const int team = storage::team_size(nthreads);
        if (prepared && prepared->stage == number && prepared->team == team) return;
        prepared.reset();
        const placed_stage& stage = stages[number];
        prepared_stage made{number, team, {}};
        unsigned long flipped = stage.flipped;
        unsigned long waiting = 0;  // flips that no gate has noticed yet
        std::vector<gates::operation<T>> list;
        const auto end_segment = [&] {
            if (!list.empty()) {
                made.segments.push_back({flipped, distributed::part_schedule<T>(list, nqubits, part_bits, team)});
                made.passes += made.segments.back().schedule.passes();
            }
            list.clear();
            flipped ^= std::exchange(waiting, 0);
        };
        for (const unsigned long gate : stage.gates) {
            const unsigned long flip = flip_of(operations[gate], stage.place);
            waiting ^= flip;
            if (flip != 0) continue;
            auto op = distributed::renamed(operations[gate], stage.place);
            if (((op.target_mask() | op.controls) >> part_bits & waiting) != 0) end_segment();
            list.push_back(std::move(op));
        }
        for (const auto& [a, b] : stage.swaps) list.push_back(distributed::swap_of<T>(a, b));
        end_segment();
        prepared = std::move(made);
    }

    void require(unsigned long stage, unsigned long rank) const {
        if (stage >= stages.size()) {
            refuse("The plan has " + counted(stages.size(), "stage") + ", counted from 0, not one of number " +
                   std::to_string(stage));
        }
        require_rank(rank);
    }
    void require_rank(unsigned long rank) const {
        if (rank < ranks()) return;
        refuse("The plan has " + counted(ranks(), "rank") + ", counted from 0, not one of number " +
               std::to_string(rank));
    }
};

template <class T>
stage_plan<T>::stage_plan(const program<T>& list, unsigned int nqubits, unsigned int rank_bits,
                          const stage_settings& settings) {
    const auto& content = content_of(list.self);
    if (nqubits > replay::most_qubits) {
        refuse("A state has at most " + counted(replay::most_qubits, "qubit") + ", not " + std::to_string(nqubits));
    }
    if (nqubits < content.nqubits) {
        refuse("The program has " + counted(content.nqubits, "qubit") + ", the state " + std::to_string(nqubits));
    }
    if (rank_bits >= nqubits && rank_bits != 0) {
        refuse("A state of " + counted(nqubits, "qubit") + " has no parts on 2^" + std::to_string(rank_bits) +
               " ranks: a part has two amplitudes or more");
    }
    if (content.fusion) refuse("A program with fusion cannot be cut into stages");
    const unsigned int part_bits = nqubits - rank_bits;
    for (std::size_t gate = 0; gate < content.operations.size(); ++gate) {
        const auto& op = content.operations[gate];
        const unsigned mixed = index::count_bits(velacamplix::plan::footprint_of(op).mixed);
        if (mixed <= part_bits || distributed::is_plain_swap(op)) continue;
        refuse("Gate " + std::to_string(gate) + ", " + gates::name_of(op.kind) + ", mixes " + counted(mixed, "qubit") +
               ", and a part has " + std::to_string(part_bits));
    }
    distributed::without_swaps<T> renamed(content.operations, nqubits);
    self = std::make_unique<implementation>();
    self->nqubits = nqubits;
    self->part_bits = part_bits;
    self->back_in_order = settings.back_in_order;
    self->operations = std::move(renamed.operations);
    self->plan_stages(renamed.name, settings);
}
template <class T>
stage_plan<T>::~stage_plan() = default;
template <class T>
stage_plan<T>::stage_plan(stage_plan&&) noexcept = default;
template <class T>
stage_plan<T>& stage_plan<T>::operator=(stage_plan&&) noexcept = default;

template <class T>
unsigned long stage_plan<T>::size() const {
    return self->stages.size();
}

template <class T>
unsigned int stage_plan<T>::part_qubits() const {
    return self->part_bits;
}

template <class T>
double stage_plan<T>::parts_sent() const {
    return self->sent;
}

template <class T>
std::vector<thrust::complex<T>> stage_plan<T>::coefficients() const {
    std::vector<thrust::complex<T>> numbers;
    for (const auto& op : self->operations) {
        numbers.insert(numbers.end(), op.coefficients.begin(), op.coefficients.end());
        numbers.insert(numbers.end(), op.entries.begin(), op.entries.end());
    }
    return numbers;
}

template <class T>
void stage_plan<T>::set_coefficients(const std::vector<thrust::complex<T>>& numbers) {
    std::size_t count = 0;
    for (const auto& op : self->operations) count += op.coefficients.size() + op.entries.size();
    if (numbers.size() != count) {
        refuse("The plan has " + counted(count, "coefficient") + ", not " + std::to_string(numbers.size()));
    }
    self->prepared.reset();
    auto from = numbers.begin();
    for (auto& op : self->operations) {
        for (auto& number : op.coefficients) number = *from++;
        for (auto& number : op.entries) number = *from++;
    }
}

// The bits that come in, as a number, are exchanged with the number of a block of the part. In round x a rank meets the
// one that differs from it by x in these bits, and each gives the block that bears the other's number.
template <class T>
std::vector<part_transfer> stage_plan<T>::transfers(unsigned long stage, unsigned long rank) const {
    self->require(stage, rank);
    const placed_stage& next = self->stages[stage];
    const unsigned long blocks = 1ul << next.exchanged();
    const unsigned long size = self->part_size() / blocks;
    const unsigned long mine = index::extract(rank ^ next.flipped, next.incoming);
    std::vector<part_transfer> transfers;
    for (unsigned long x = 1; x < blocks; ++x) {
        transfers.push_back({rank ^ index::deposit(x, next.incoming), (mine ^ x) * size, size});
    }
    return transfers;
}

template <class T>
void stage_plan<T>::run_stage(unsigned long stage, unsigned long rank, thrust::complex<T>* part, int nthreads,
                              const work_hook& hook) {
    self->require(stage, rank);
    self->prepare(stage, nthreads);
    unsigned long done = 0;
    for (auto& segment : self->prepared->segments) {
        segment.schedule.run(rank ^ segment.flipped, part, [&] {
            ++done;
            if (hook) hook(done, self->prepared->passes);
        });
    }
}

template <class T>
void stage_plan<T>::run(unsigned long rank, thrust::complex<T>* part, int nthreads, const part_exchange& exchange,
                        const work_hook& hook) {
    constexpr unsigned long most_at_once = (16ul << 20) / sizeof(thrust::complex<T>);
    self->require_rank(rank);
    for (unsigned long stage = 0; stage < size(); ++stage) {
        for (const auto& [partner, first, count] : transfers(stage, rank)) {
            for (unsigned long at = 0; at < count; at += most_at_once) {
                exchange(partner, part + first + at, sizeof(thrust::complex<T>) * std::min(most_at_once, count - at));
            }
        }
        run_stage(stage, rank, part, nthreads);
        if (hook) hook(stage + 1, size());
    }
}

template <class T>
const qubit_places& stage_plan<T>::places() const {
    return self->at_end;
}

template <class T>
unsigned long stage_plan<T>::part_of(unsigned long rank) const {
    self->require_rank(rank);
    if (!self->back_in_order) throw std::logic_error("The plan does not bring the state back in order");
    unsigned long number = 0;
    for (unsigned int q = self->part_bits; q < self->nqubits; ++q) {
        const unsigned long bit = (rank ^ self->at_end.flipped) >> (self->at_end.places[q] - self->part_bits) & 1;
        number |= bit << (q - self->part_bits);
    }
    return number;
}

template class stage_plan<float>;
template class stage_plan<double>;

}  // namespace pbamplix::cpu
