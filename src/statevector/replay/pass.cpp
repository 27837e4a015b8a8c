#include "statevector/replay/pass.hpp"

#include "statevector/index/bits.hpp"
#include "statevector/packs/pack.hpp"
#include "statevector/replay/fusion.hpp"
#include "statevector/storage/aligned_array.hpp"

#include <unistd.h>

#include <algorithm>

namespace velacamplix::replay {

gathering::gathering(unsigned long local) {
    run_bits = static_cast<unsigned>(std::countr_one(local));
    const unsigned long outer = local & ~index::low_bits(run_bits);
    const unsigned long runs = 1ul << std::popcount(outer);
    for (unsigned long run = 0; run < runs; ++run) offsets.push_back(index::deposit(run, outer));
}

namespace {

using gates::operation;

template <class T>
inline constexpr unsigned long amplitudes_in_a_line = storage::line_bytes / sizeof(thrust::complex<T>);

template <class T>
inline constexpr unsigned least_run_bits = static_cast<unsigned>(std::countr_zero(8 * amplitudes_in_a_line<T>));

// Copies a run of 2^run_bits amplitudes, whole cache lines. Runs are short: a call of memcpy for each would cost more
// than the copy.
template <class T>
[[gnu::always_inline]] inline void copy_run(const thrust::complex<T>* from, thrust::complex<T>* to,
                                            unsigned long length) {
    using pack = packs::wide_pack<T>;
    for (unsigned long i = 0; i < length; i += packs::lanes<pack>) {
        packs::store(to + i, packs::load<pack>(from + i));
    }
}

template <class T>
void copy_in(const gathering& chunks, const thrust::complex<T>* from, thrust::complex<T>* buffer) {
    const unsigned long length = 1ul << chunks.run_bits;
    for (const unsigned long offset : chunks.offsets) {
        copy_run(from + offset, buffer, length);
        buffer += length;
    }
}

template <class T>
void copy_out(const gathering& chunks, const thrust::complex<T>* buffer, thrust::complex<T>* to) {
    const unsigned long length = 1ul << chunks.run_bits;
    for (const unsigned long offset : chunks.offsets) {
        copy_run(buffer, to + offset, length);
        buffer += length;
    }
}

// Asks for the lines of the next chunk, a share of its runs at a time, while the present one is worked on.
template <class T>
void fetch_runs(const gathering& chunks, const thrust::complex<T>* from, unsigned long begin, unsigned long end) {
    const unsigned long length = 1ul << chunks.run_bits;
    for (unsigned long run = begin; run < end; ++run) {
        const thrust::complex<T>* const at = from + chunks.offsets[run];
        for (unsigned long i = 0; i < length; i += amplitudes_in_a_line<T>) {
            __builtin_prefetch(at + i, 1, 2);
        }
    }
}

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

constexpr unsigned long usual_first_level_cache_bytes = 32ul << 10;

// Two thirds of the cache at most: the rest is for what the gates read besides, and for the next chunk's first lines.
template <class T>
constexpr unsigned chunk_bits_within(unsigned long cache_bytes) {
    return static_cast<unsigned>(std::bit_width(cache_bytes * 2 / 3 / sizeof(thrust::complex<T>))) - 1;
}

template <class T>
std::vector<const operation<T>*> pointers_to(const std::vector<operation<T>>& operations) {
    std::vector<const operation<T>*> pointers;
    pointers.reserve(operations.size());
    for (const operation<T>& op : operations) pointers.push_back(&op);
    return pointers;
}

// The operations in buffers of the local bits.
template <class T>
chunk_pass<T> make_pass(const std::vector<const operation<T>*>& from, unsigned long local, unsigned nbqbits) {
    const unsigned long count = from.size();
    chunk_pass<T> pass;
    pass.local = local;
    pass.in_place = local == index::low_bits(nbqbits);
    if (local == 0 || (count == 1 && !pass.in_place && from[0]->kind != gates::gate_kind::product)) {
        pass.local = 0;
        pass.whole_array = gates::prepare(*from[0], nbqbits);
        return pass;
    }
    const locality chunk(local);
    pass.chunks = gathering(local);
    for (unsigned long gate = 0; gate < count;) {
        unsigned long last = gate;
        if (chunk.bits.size() >= kernels::diagonal_run<T>::fewest_qubits) {
            while (last < count && joins_runs(*from[last])) ++last;
        }
        if (last - gate >= 2) {
            pass.steps.push_back(resolve_run(from.data() + gate, last - gate, chunk));
            gate = last;
        } else {
            pass.steps.push_back(resolve(*from[gate++], chunk));
        }
    }
    return pass;
}

}  // namespace

template <class T>
chunk_pass<T> make_pass(const std::vector<operation<T>>& operations, const stretch& part, unsigned nbqbits) {
    std::vector<const operation<T>*> taken;
    for (const unsigned long gate : part.gates) taken.push_back(&operations[gate]);
    return make_pass(taken, part.local, nbqbits);
}

unsigned long first_level_cache_bytes() {
    static const long told = sysconf(_SC_LEVEL1_DCACHE_SIZE);
    return told > 0 ? static_cast<unsigned long>(told) : usual_first_level_cache_bytes;
}

template <class T>
buffer_shape choose_shape(unsigned nbqbits, int threads, unsigned long cache_bytes) {
    unsigned chunk_bits = chunk_bits_within<T>(std::max(cache_bytes, 8ul << 10));  // whatever a system tells
    // Enough chunks for every thread, where a second thread pays at all.
    const bool shared = threads > 1 && (sizeof(thrust::complex<T>) << nbqbits) >= storage::worthwhile_bytes;
    if (shared && nbqbits > chunk_bits) chunk_bits = std::min(chunk_bits, nbqbits - 2);
    return {least_run_bits<T>, chunk_bits};
}

template <class T>
buffer_shape fused_shape() {
    return {least_run_bits<T>, chunk_bits_within<T>(usual_first_level_cache_bytes)};
}

template <class T>
std::vector<chunk_pass<T>> make_passes(const std::vector<gates::operation<T>>& operations, unsigned nbqbits,
                                       buffer_shape shape, const planning_hook& go_on) {
    std::vector<footprint> footprints;
    footprints.reserve(operations.size());
    for (const auto& op : operations) footprints.push_back(footprint_of(op));
    std::vector<chunk_pass<T>> passes;
    unsigned long done = 0;
    question asked(go_on);
    deal_out(footprints, nbqbits, shape, exchange::exact, [&](stretch part) {
        auto& pass = passes.emplace_back(make_pass(operations, part, nbqbits));
        const auto [first, last] = std::minmax_element(part.gates.begin(), part.gates.end());
        pass.first = *first;
        pass.last = *last + 1;
        pass.done = done += part.gates.size();
        pass.gates = std::move(part.gates);
        return asked.after(done);
    });
    return passes;
}

template <class T>
std::vector<chunk_pass<T>> make_fused_passes(const std::vector<operation<T>>& operations, unsigned nbqbits,
                                             const planning_hook& go_on) {
    const buffer_shape shape = fused_shape<T>();
    // A run can only stop between stretches. They are short enough to stop soon, and long enough to hold most of what
    // can be brought together.
    const unsigned long length = 16ul * std::max(nbqbits, 4u);
    std::vector<chunk_pass<T>> passes;
    question asked(go_on);
    for (unsigned long first = 0; first < operations.size() && asked.after(first); first += length) {
        const unsigned long last = std::min(first + length, operations.size());
        const auto groups = fuse(operations, first, last, nbqbits, shape);
        for (std::size_t i = 0; i < groups.size(); ++i) {
            const auto& group = groups[i];
            auto& pass = passes.emplace_back(make_pass(pointers_to(group.operations), group.local, nbqbits));
            pass.first = first;
            pass.last = last;
            pass.done = first + (last - first) * (i + 1) / groups.size();
            pass.may_stop_after = i + 1 == groups.size();
        }
    }
    return passes;
}

template <class T>
void run_chunks(const chunk_pass<T>& pass, thrust::complex<T>* state, unsigned nbqbits, unsigned long begin,
                unsigned long end, thrust::complex<T>* buffer) {
    if (pass.in_place) {
        for (const step<T>& s : pass.steps) {
            if (s.acts_on(0)) s.run(state, 0);
        }
        return;
    }
    const unsigned long outer = index::low_bits(nbqbits) & ~pass.local;
    const unsigned long runs = pass.chunks.offsets.size();
    const unsigned long steps = pass.steps.size();
    for (unsigned long c = begin; c < end; ++c) {
        const unsigned long base = index::deposit(c, outer);
        const bool acts =
            std::any_of(pass.steps.begin(), pass.steps.end(), [base](const step<T>& s) { return s.acts_on(base); });
        if (!acts) continue;
        const thrust::complex<T>* const next = state + index::deposit(c + 1 < end ? c + 1 : c, outer);
        copy_in(pass.chunks, state + base, buffer);
        for (unsigned long i = 0; i < steps; ++i) {
            if (pass.steps[i].acts_on(base)) pass.steps[i].run(buffer, base);
            fetch_runs(pass.chunks, next, runs * i / steps, runs * (i + 1) / steps);
        }
        copy_out(pass.chunks, buffer, state + base);
    }
}

#define VELACAMPLIX_INSTANTIATE(T)                                                                                 \
    template buffer_shape choose_shape<T>(unsigned, int, unsigned long);                                           \
    template buffer_shape fused_shape<T>();                                                                        \
    template chunk_pass<T> make_pass<T>(const std::vector<operation<T>>&, const stretch&, unsigned);               \
    template std::vector<chunk_pass<T>> make_passes<T>(const std::vector<gates::operation<T>>&, unsigned,          \
                                                       buffer_shape, const planning_hook&);                        \
    template std::vector<chunk_pass<T>> make_fused_passes<T>(const std::vector<operation<T>>&, unsigned,           \
                                                             const planning_hook&);                                \
    template void run_chunks<T>(const chunk_pass<T>&, thrust::complex<T>*, unsigned, unsigned long, unsigned long, \
                                thrust::complex<T>*);
VELACAMPLIX_FOR_EACH_PRECISION(VELACAMPLIX_INSTANTIATE)

}  // namespace velacamplix::replay
