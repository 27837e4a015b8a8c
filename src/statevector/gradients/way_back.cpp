#include "statevector/gradients/way_back.hpp"

#include "statevector/fusion/one_qubit_unitary.hpp"
#include "statevector/gradients/derivative.hpp"
#include "statevector/gradients/inverse.hpp"
#include "statevector/gradients/turn.hpp"
#include "statevector/index/bits.hpp"
#include "statevector/replay/chunk_copies.hpp"
#include "statevector/replay/pass.hpp"
#include "statevector/storage/aligned_array.hpp"
#include "statevector/storage/parallel.hpp"

#include <algorithm>
#include <map>
#include <optional>

namespace velacamplix::gradients {

using gates::operation;

namespace {

// A chunk of one state takes 16 KiB: psi's and lambda's lie together in the first-level cache.
constexpr unsigned long chunk_bytes = 16ul << 10;
template <class T>
constexpr plan::buffer_shape shape = {
    static_cast<unsigned>(std::countr_zero(replay::amplitudes_in_a_line<T>)) + 3,  // runs of eight cache lines
    static_cast<unsigned>(std::countr_zero(chunk_bytes / sizeof(thrust::complex<T>)))};

// Partial sums of a pass: a number for each of so many sections of the chunks, or fewer where there are fewer chunks,
// and so many sums, of every lambda.
constexpr unsigned long most_sections = 256;
constexpr unsigned long most_sums = 128;

// Chunks whose lines are fetched ahead together with the buffers in use: more would push each other out.
constexpr std::size_t most_fetched = 4;

// A sum seen from a chunk: `inside` over positions in the buffer, for chunks whose base has all of `required`, with the
// sign of the base's bits under `signs`.
struct sum_in_chunk {
    pauli_sum inside;
    unsigned long required;
    unsigned long signs;
    std::size_t number;  // among those of the pass

    double signed_value(double value, unsigned long base) const {
        return index::count_bits(base & signs) % 2 != 0 ? -value : value;
    }
    bool counts_in(unsigned long base) const { return (base & required) == required; }
    // Whether fold_products gives it.
    bool is_folded() const { return inside.controls == 0 && index::count_bits(inside.phase) <= 1; }
};

// The turn that undoes a rotation, with the number of its sum; none where it is not wanted.
template <class T>
struct turned_gate {
    turn<T> by;
    std::optional<std::size_t> number;
};

// Sums, a turn behind them, and the steps that follow.
template <class T>
struct station {
    std::vector<sum_in_chunk> of_flips, of_products;
    std::optional<turned_gate<T>> turned;
    std::vector<replay::step<T>> steps;
};

sum_in_chunk seen_from(const replay::locality& where, const pauli_sum& sum, std::size_t number) {
    const unsigned long outside = ~where.mask();
    const pauli_sum inside = {where.inside(sum.flip), where.inside(sum.phase), sum.y_count, where.inside(sum.controls)};
    return {inside, sum.controls & outside, sum.phase & outside, number};
}

// So many phases on half of the amplitudes cost what one factor for every amplitude does.
constexpr std::size_t fewest_for_a_product = 4;

// Gates that act one after another, with neighbouring phases on single qubits multiplied together: on the way back no
// order of products is promised.
template <class T>
std::vector<operation<T>> with_products(const std::vector<const operation<T>*>& taken) {
    const auto is_phase = [](const operation<T>& op) {
        return op.is_diagonal() && op.targets.size() == 1 && op.controls == 0;
    };
    std::vector<operation<T>> result;
    for (std::size_t first = 0; first < taken.size();) {
        std::size_t last = first;
        while (last < taken.size() && is_phase(*taken[last])) ++last;
        if (last - first < fewest_for_a_product) {
            last = std::max(last, first + 1);
            for (; first < last; ++first) result.push_back(*taken[first]);
            continue;
        }
        std::map<unsigned, fusion::factor_pair> factors;
        for (; first < last; ++first) {
            const fusion::one_qubit_unitary u = fusion::matrix_of(*taken[first]);
            fusion::factor_pair& f = factors[taken[first]->targets[0]];
            f.zero *= u.m00;
            f.one *= u.m11;
        }
        operation<T> product{};
        product.kind = gates::gate_kind::product;
        for (const auto& [target, f] : factors) {
            product.targets.push_back(target);
            for (const auto& z : {f.zero, f.one}) {
                product.entries.push_back({static_cast<T>(z.real()), static_cast<T>(z.imag())});
            }
        }
        result.push_back(std::move(product));
    }
    return result;
}

// A block of a layer.
template <class T>
struct undone_block {
    std::vector<operation<T>> undoing;
    bool has_angles, is_diagonal;
    bool is_turned;             // by a turn that forms its sum as well
    const sums_behind* wanted;  // or null
};

// Whether all gates of a block are diagonal, and whether any takes an angle.
template <class T>
bool is_diagonal(std::span<const operation<T>> operations, std::span<const unsigned long> block) {
    return std::all_of(block.begin(), block.end(), [&](unsigned long gate) { return operations[gate].is_diagonal(); });
}
template <class T>
bool has_angles(std::span<const operation<T>> operations, std::span<const unsigned long> block) {
    return std::any_of(block.begin(), block.end(),
                       [&](unsigned long gate) { return gates::angles_of(operations[gate].kind) != 0; });
}

// A matrix in the place of several gates mixes all of their qubits.
template <class T>
plan::footprint footprint_of(std::span<const operation<T>> operations, std::span<const unsigned long> block) {
    if (block.size() == 1) return plan::footprint_of(operations[block[0]]);
    unsigned long qubits = 0;
    for (const unsigned long gate : block) qubits |= operations[gate].target_mask() | operations[gate].controls;
    return is_diagonal(operations, block) ? plan::footprint{0, qubits, false} : plan::footprint{qubits, 0, false};
}

// How many sums the derivatives by the gates of a block take at most.
template <class T>
unsigned most_sums_of(std::span<const operation<T>> operations, std::span<const unsigned long> block) {
    constexpr unsigned of_a_pair = 16;
    unsigned count = 0;
    for (const unsigned long gate : block) count += count_sums(operations[gate].kind);
    return block.size() == 1 ? count : count == 0 ? 0 : of_a_pair;
}

// One layer with all it takes.
template <class T>
class backward_pass {
public:
    // Which blocks of the layer have a station of their own does not depend on what is wanted, so that one sum's bits
    // do not depend on others.
    backward_pass(const std::vector<undone_block<T>>& undone, unsigned long local, unsigned nbqbits)
        : nbqbits_(nbqbits), local_(local), chunks_(local) {
        const replay::locality where(local);
        std::vector<const operation<T>*> taken;
        bool all_diagonal = true;  // of what has acted since the last sums
        const auto close = [&] {
            if (taken.empty()) return;
            const std::vector<operation<T>> fewer = with_products(taken);
            std::vector<const operation<T>*> listed;
            listed.reserve(fewer.size());
            for (const operation<T>& op : fewer) listed.push_back(&op);
            stations_.back().steps = replay::steps_of(listed, where);
            taken.clear();
        };
        stations_.emplace_back();
        for (const undone_block<T>& block : undone) {
            const bool is_first = taken.empty() && !stations_.back().turned;
            // What diagonal gates leave as it is, a station at their beginning tells for all of them.
            if (block.has_angles && !is_first && !(block.is_diagonal && all_diagonal)) {
                close();
                stations_.emplace_back();
                all_diagonal = true;
            }
            if (block.is_turned && index::count_bits(local) >= least_turned_bits) {
                stations_.back().turned = turned_by(block, where);
            } else {
                take_sums(block, where);
                for (const operation<T>& op : block.undoing) taken.push_back(&op);
            }
            all_diagonal = all_diagonal && block.is_diagonal;
        }
        close();
    }

    // states[0] is psi, the others are the lambdas. Returns the sums, those of the first lambda first.
    std::vector<double> run(const std::vector<thrust::complex<T>*>& states, int team) const {
        const std::size_t lambdas = states.size() - 1;
        const unsigned bits = index::count_bits(local_);
        const unsigned long chunk = 1ul << bits, chunks = 1ul << (nbqbits_ - bits);
        const unsigned long sections = std::min(chunks, most_sections), per_section = chunks / sections;
        const unsigned long bytes = states.size() * sizeof(thrust::complex<T>) << nbqbits_;
        const unsigned long bodies = storage::most_bodies(sections, bytes, team);
        const bool copies = chunks > 1;
        auto buffers = storage::make_amplitudes<T>(copies ? bodies * states.size() * chunk : 0);
        auto products = storage::make_amplitudes<double>(bodies * std::max(chunk / 2, 1ul));
        std::vector<double> partial(sections * lambdas * count_);

        storage::parallel_leases(
            sections, bytes, team, [&](unsigned long begin, unsigned long end, unsigned long lease) {
                auto* const own_products = reinterpret_cast<double*>(products.get() + lease * std::max(chunk / 2, 1ul));
                std::vector<thrust::complex<T>*> own = states;
                for (std::size_t k = 0; k < states.size() && copies; ++k) {
                    own[k] = buffers.get() + (lease * states.size() + k) * chunk;
                }
                for (unsigned long section = begin; section < end; ++section) {
                    double* const sums = partial.data() + section * lambdas * count_;
                    const unsigned long last = (section + 1) * per_section;
                    for (unsigned long c = section * per_section; c < last; ++c) {
                        if (copies) {
                            run_copied(states, c, c + 1 < last ? c + 1 : c, own, own_products, sums);
                        } else {
                            for (const station<T>& s : stations_) visit(s, states, 0, own_products, sums);
                        }
                    }
                }
            });
        std::vector<double> sums(lambdas * count_);
        for (unsigned long section = 0; section < sections; ++section) {
            for (std::size_t s = 0; s < sums.size(); ++s) sums[s] += partial[section * sums.size() + s];
        }
        return sums;
    }

private:
    void take_sums(const undone_block<T>& block, const replay::locality& where) {
        if (block.wanted == nullptr) return;
        for (const pauli_sum& sum : block.wanted->sums) {
            auto& list = sum.is_diagonal() ? stations_.back().of_products : stations_.back().of_flips;
            list.push_back(seen_from(where, sum, count_++));
        }
    }

    turned_gate<T> turned_by(const undone_block<T>& block, const replay::locality& where) {
        const operation<T>& op = block.undoing[0];
        const bool about_x = op.kind == gates::gate_kind::rx;
        const auto& c = op.coefficients;
        turned_gate<T> gate{{where.inside(op.target_mask()), about_x, c[0].real(), about_x ? c[1].imag() : c[1].real()},
                            std::nullopt};
        if (block.wanted != nullptr) gate.number = count_++;
        return gate;
    }

    // The chunk c of all states, while the lines of `next` are fetched.
    void run_copied(const std::vector<thrust::complex<T>*>& states, unsigned long c, unsigned long next,
                    const std::vector<thrust::complex<T>*>& buffers, double* products, double* sums) const {
        const unsigned long outer = index::low_bits(nbqbits_) & ~local_;
        const unsigned long base = index::deposit(c, outer), next_base = index::deposit(next, outer);
        const unsigned long runs = chunks_.offsets.size();
        for (std::size_t k = 0; k < states.size(); ++k) replay::copy_in(chunks_, states[k] + base, buffers[k]);
        for (std::size_t i = 0; i < stations_.size(); ++i) {
            visit(stations_[i], buffers, base, products, sums);
            for (std::size_t k = 0; k < states.size() && states.size() <= most_fetched; ++k) {
                replay::fetch_runs(chunks_, states[k] + next_base, runs * i / stations_.size(),
                                   runs * (i + 1) / stations_.size());
            }
        }
        for (std::size_t k = 0; k < states.size(); ++k) replay::copy_out(chunks_, buffers[k], states[k] + base);
    }

    void visit(const station<T>& s, const std::vector<thrust::complex<T>*>& arrays, unsigned long base,
               double* products, double* sums) const {
        const unsigned bits = index::count_bits(local_);
        for (std::size_t k = 1; k < arrays.size(); ++k) {
            add_sums(s, arrays[k], arrays[0], bits, base, products, sums + (k - 1) * count_);
        }
        for (std::size_t k = 1; k < arrays.size() && s.turned; ++k) {
            const double sum = sum_and_turn(arrays[k], arrays[0], bits, s.turned->by, k + 1 == arrays.size());
            if (s.turned->number) sums[(k - 1) * count_ + *s.turned->number] += sum;
        }
        for (const replay::step<T>& step : s.steps) {
            if (!step.acts_on(base)) continue;
            for (thrust::complex<T>* const array : arrays) step.run(array, base);
        }
    }

    static void add_sums(const station<T>& s, const thrust::complex<T>* lambda, const thrust::complex<T>* psi,
                         unsigned bits, unsigned long base, double* products, double* sums) {
        for (const sum_in_chunk& sum : s.of_flips) {
            if (!sum.counts_in(base)) continue;
            sums[sum.number] += sum.signed_value(sum_of_flip(lambda, psi, bits, sum.inside), base);
        }
        const auto counts = [base](const sum_in_chunk& sum) { return sum.counts_in(base); };
        if (!std::any_of(s.of_products.begin(), s.of_products.end(), counts)) return;
        fill_products(lambda, psi, bits, products);
        bool folds = false;
        for (const sum_in_chunk& sum : s.of_products) {
            if (!sum.counts_in(base)) continue;
            if (sum.is_folded()) {
                folds = true;
            } else {
                sums[sum.number] += sum.signed_value(sum_of_products(products, bits, sum.inside), base);
            }
        }
        if (!folds) return;
        double totals[64];
        fold_products(products, bits, totals);
        for (const sum_in_chunk& sum : s.of_products) {
            if (!sum.counts_in(base) || !sum.is_folded()) continue;
            const unsigned long at =
                sum.inside.phase == 0 ? bits : static_cast<unsigned long>(std::countr_zero(sum.inside.phase));
            sums[sum.number] += sum.signed_value(totals[at], base);
        }
    }

    unsigned nbqbits_;
    unsigned long local_;
    replay::gathering chunks_;
    std::vector<station<T>> stations_;
    std::size_t count_ = 0;
};

// Moves diagonal gates to the last run of such gates before them where nothing between mixes their qubits: one station
// serves them all.
std::vector<unsigned long> diagonals_together(const std::vector<unsigned long>& gates,
                                              const std::vector<plan::footprint>& footprints) {
    std::vector<unsigned long> result;
    result.reserve(gates.size());
    std::size_t end_of_run = 0;
    unsigned long mixed_since = ~0ul;
    for (const unsigned long gate : gates) {
        const plan::footprint& f = footprints[gate];
        if (f.mixed != 0) {
            result.push_back(gate);
            mixed_since |= f.mixed;
            continue;
        }
        if ((f.read & mixed_since) != 0) {
            end_of_run = result.size();
            mixed_since = 0;
        }
        result.insert(result.begin() + static_cast<long>(end_of_run++), gate);
    }
    return result;
}

}  // namespace

template <class T>
plan_back<T> make_plan_back(std::span<const operation<T>> operations, unsigned nbqbits, bool fusion,
                            const std::function<void()>& go_on) {
    plan_back<T> made{
        nbqbits, fusion, fusion ? fused_gates(operations, go_on) : single_gates<T>(operations.size()), {}};
    const block_list<T>& blocks = made.blocks;
    std::vector<plan::layer>& layers = made.layers;
    std::vector<plan::footprint> footprints;
    footprints.reserve(blocks.size());
    for (unsigned long block = blocks.size(); block-- > 0;) {
        footprints.push_back(footprint_of(operations, blocks[block]));
    }
    unsigned long done = 0, next_question = replay::gates_between_questions;
    plan::deal_out(footprints, nbqbits, shape<T>, plan::exchange::up_to_rounding, [&](plan::layer layer) {
        // A layer with many sums is cut into several, each with partial sums of bounded size.
        plan::layer part{{}, layer.local};
        unsigned long sums = 0;
        for (const unsigned long place : diagonals_together(layer.gates, footprints)) {
            const unsigned more = most_sums_of(operations, blocks[blocks.size() - 1 - place]);
            if (sums + more > most_sums) {
                layers.push_back(std::move(part));
                part = {{}, layer.local};
                sums = 0;
            }
            part.gates.push_back(place);
            sums += more;
        }
        layers.push_back(std::move(part));
        done += layer.gates.size();
        if (go_on && done >= next_question) {
            next_question = done + replay::gates_between_questions;
            go_on();
        }
        return true;
    });
    return made;
}

template <class T>
std::vector<std::vector<double>> run_back(std::span<const operation<T>> operations, const plan_back<T>& plan,
                                          const std::vector<sums_behind>& wanted, int nthreads, thrust::complex<T>* psi,
                                          const std::vector<thrust::complex<T>*>& lambdas,
                                          const pbamplix::work_hook& hook) {
    const block_list<T>& blocks = plan.blocks;
    const unsigned nbqbits = plan.state_qubits;
    const int team = storage::team_size(nthreads);
    std::vector<thrust::complex<T>*> states = {psi};
    states.insert(states.end(), lambdas.begin(), lambdas.end());

    std::vector<const sums_behind*> wanted_at(blocks.size());
    std::vector<std::size_t> first_of(wanted.size());  // where the sums of each begin among all
    std::size_t all = 0;
    for (std::size_t i = 0; i < wanted.size(); ++i) {
        wanted_at[wanted[i].block] = &wanted[i];
        first_of[i] = all;
        all += wanted[i].sums.size();
    }
    std::vector<std::vector<double>> totals(lambdas.size(), std::vector<double>(all));

    unsigned long undone_gates = 0;
    for (const plan::layer& layer : plan.layers) {
        std::vector<undone_block<T>> undone;
        undone.reserve(layer.gates.size());
        for (const unsigned long i : layer.gates) {
            const unsigned long block = blocks.size() - 1 - i;
            const std::span<const unsigned long> gates = blocks[block];
            undone.push_back({undoing_of(operations, blocks, block), has_angles(operations, gates),
                              is_diagonal(operations, gates),
                              plan.fusion && gates.size() == 1 && is_turn(operations[gates[0]]), wanted_at[block]});
            undone_gates += gates.size();
        }
        if (layer.local == 0) {  // one gate on more qubits than a buffer holds, which has no angle
            const auto call = gates::prepare(undone[0].undoing[0], nbqbits);
            for (thrust::complex<T>* const state : states) kernels::run_parallel(call, state, team);
        } else {
            const backward_pass<T> pass(undone, layer.local, nbqbits);
            const std::vector<double> found = pass.run(states, team);
            const std::size_t count = found.size() / lambdas.size();
            std::size_t number = 0;
            for (const undone_block<T>& block : undone) {
                const sums_behind* const at = block.wanted;
                if (at == nullptr) continue;
                const std::size_t to = first_of[static_cast<std::size_t>(at - wanted.data())];
                for (std::size_t s = 0; s < at->sums.size(); ++s, ++number) {
                    for (std::size_t k = 0; k < lambdas.size(); ++k) totals[k][to + s] = found[k * count + number];
                }
            }
        }
        if (hook) hook(undone_gates, operations.size());
    }
    return totals;
}

#define VELACAMPLIX_INSTANTIATE(T)                                                                                     \
    template plan_back<T> make_plan_back(std::span<const operation<T>>, unsigned, bool, const std::function<void()>&); \
    template std::vector<std::vector<double>> run_back(                                                                \
        std::span<const operation<T>>, const plan_back<T>&, const std::vector<sums_behind>&, int, thrust::complex<T>*, \
        const std::vector<thrust::complex<T>*>&, const pbamplix::work_hook&);
VELACAMPLIX_FOR_EACH_PRECISION(VELACAMPLIX_INSTANTIATE)

}  // namespace velacamplix::gradients
