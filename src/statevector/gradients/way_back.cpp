#include "statevector/gradients/way_back.hpp"

#include "statevector/fusion/one_qubit_unitary.hpp"
#include "statevector/gradients/derivative.hpp"
#include "statevector/gradients/inverse.hpp"
#include "statevector/index/bits.hpp"
#include "statevector/replay/chunk_copies.hpp"
#include "statevector/replay/pass.hpp"
#include "statevector/storage/aligned_array.hpp"
#include "statevector/storage/parallel.hpp"

#include <algorithm>
#include <map>

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

// Sums, and the steps that follow on them.
template <class T>
struct station {
    std::vector<sum_in_chunk> of_flips, of_products;
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

// One layer with all it takes.
template <class T>
class backward_pass {
public:
    // `undoing`: the inverted gates of the layer, in order; `wanted`: for each the sums behind it, or null. Which gates
    // have a station of their own does not depend on what is wanted, so that one sum's bits do not depend on others.
    backward_pass(const std::vector<operation<T>>& undoing, const std::vector<const sums_at_gate*>& wanted,
                  unsigned long local, unsigned nbqbits)
        : nbqbits_(nbqbits), local_(local), chunks_(local) {
        const replay::locality where(local);
        std::vector<const operation<T>*> taken;
        bool all_diagonal = true;  // of those taken
        const auto close = [&] {
            if (taken.empty()) return;
            const std::vector<operation<T>> fewer = with_products(taken);
            std::vector<const operation<T>*> listed;
            listed.reserve(fewer.size());
            for (const operation<T>& op : fewer) listed.push_back(&op);
            stations_.back().steps = replay::steps_of(listed, where);
            taken.clear();
            all_diagonal = true;
        };
        stations_.emplace_back();
        for (std::size_t i = 0; i < undoing.size(); ++i) {
            const bool diagonal = undoing[i].is_diagonal();
            const bool has_angles = gates::angles_of(undoing[i].kind) != 0;
            // What diagonal gates leave as it is, a station at their beginning tells for all of them.
            if (has_angles && !taken.empty() && !(diagonal && all_diagonal)) {
                close();
                stations_.emplace_back();
            }
            if (wanted[i] != nullptr) {
                for (const pauli_sum& sum : wanted[i]->sums) {
                    auto& list = sum.is_diagonal() ? stations_.back().of_products : stations_.back().of_flips;
                    list.push_back(seen_from(where, sum, count_++));
                }
            }
            taken.push_back(&undoing[i]);
            all_diagonal = all_diagonal && diagonal;
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
std::vector<plan::layer> layers_back(std::span<const operation<T>> operations, unsigned nbqbits,
                                     const std::function<void()>& go_on) {
    std::vector<plan::footprint> footprints = plan::footprints_of(operations);
    std::reverse(footprints.begin(), footprints.end());
    std::vector<plan::layer> layers;
    unsigned long done = 0, next_question = replay::gates_between_questions;
    plan::deal_out(footprints, nbqbits, shape<T>, plan::exchange::up_to_rounding, [&](plan::layer layer) {
        // A layer with many sums is cut into several, each with partial sums of bounded size.
        plan::layer part{{}, layer.local};
        unsigned long sums = 0;
        for (const unsigned long gate : diagonals_together(layer.gates, footprints)) {
            const unsigned more = count_sums(operations[operations.size() - 1 - gate].kind);
            if (sums + more > most_sums) {
                layers.push_back(std::move(part));
                part = {{}, layer.local};
                sums = 0;
            }
            part.gates.push_back(gate);
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
    return layers;
}

template <class T>
std::vector<std::vector<double>> run_back(std::span<const operation<T>> operations,
                                          const std::vector<plan::layer>& layers,
                                          const std::vector<sums_at_gate>& wanted, unsigned nbqbits, int nthreads,
                                          thrust::complex<T>* psi, const std::vector<thrust::complex<T>*>& lambdas,
                                          const pbamplix::work_hook& hook) {
    const int team = storage::team_size(nthreads);
    std::vector<thrust::complex<T>*> states = {psi};
    states.insert(states.end(), lambdas.begin(), lambdas.end());

    std::vector<const sums_at_gate*> wanted_at(operations.size());
    std::vector<std::size_t> first_of(wanted.size());  // where the sums of each begin among all
    std::size_t all = 0;
    for (std::size_t i = 0; i < wanted.size(); ++i) {
        wanted_at[wanted[i].gate] = &wanted[i];
        first_of[i] = all;
        all += wanted[i].sums.size();
    }
    std::vector<std::vector<double>> totals(lambdas.size(), std::vector<double>(all));

    unsigned long undone = 0;
    for (const plan::layer& layer : layers) {
        std::vector<operation<T>> undoing;
        std::vector<const sums_at_gate*> sums;
        undoing.reserve(layer.gates.size());
        for (const unsigned long i : layer.gates) {
            const unsigned long gate = operations.size() - 1 - i;
            undoing.push_back(inverse_of(operations[gate]));
            sums.push_back(wanted_at[gate]);
        }
        if (layer.local == 0) {  // one gate on more qubits than a buffer holds, which has no angle
            const auto call = gates::prepare(undoing[0], nbqbits);
            for (thrust::complex<T>* const state : states) kernels::run_parallel(call, state, team);
        } else {
            const backward_pass<T> pass(undoing, sums, layer.local, nbqbits);
            const std::vector<double> found = pass.run(states, team);
            const std::size_t count = found.size() / lambdas.size();
            std::size_t number = 0;
            for (const sums_at_gate* const at : sums) {
                if (at == nullptr) continue;
                const std::size_t to = first_of[static_cast<std::size_t>(at - wanted.data())];
                for (std::size_t s = 0; s < at->sums.size(); ++s, ++number) {
                    for (std::size_t k = 0; k < lambdas.size(); ++k) totals[k][to + s] = found[k * count + number];
                }
            }
        }
        undone += layer.gates.size();
        if (hook) hook(undone, operations.size());
    }
    return totals;
}

#define VELACAMPLIX_INSTANTIATE(T)                                                                                  \
    template std::vector<plan::layer> layers_back(std::span<const operation<T>>, unsigned,                          \
                                                  const std::function<void()>&);                                    \
    template std::vector<std::vector<double>> run_back(                                                             \
        std::span<const operation<T>>, const std::vector<plan::layer>&, const std::vector<sums_at_gate>&, unsigned, \
        int, thrust::complex<T>*, const std::vector<thrust::complex<T>*>&, const pbamplix::work_hook&);
VELACAMPLIX_FOR_EACH_PRECISION(VELACAMPLIX_INSTANTIATE)

}  // namespace velacamplix::gradients
