#pragma once

#include "statevector/plan/buffer_shape.hpp"
#include "statevector/replay/pass.hpp"
#include "statevector/storage/stages.hpp"

#include <velacamplix/storage.hpp>

#include <functional>
#include <memory>
#include <optional>
#include <span>

namespace velacamplix::replay {

// Hears how many gates have acted and how many there are; false stops.
using run_hook = std::function<bool(unsigned long, unsigned long)>;

// A list of gates cut into passes for one size of state and one team. A request for OpenMP's default team is asked for
// its size once, here: buffers are there for so many, even if a hook changes the default between two passes.
template <class T>
class schedule {
public:
    // The hook hears of 0 gates now and then; when it stops, the schedule remains incomplete and must not be run.
    schedule(std::span<const gates::operation<T>> operations, unsigned nbqbits, int nthreads, bool fused = false,
             unsigned long cache_bytes = plan::first_level_cache_bytes(), const run_hook& hook = {});

    // Between passes the hook hears how many gates have acted and how many there are; false ends the run as soon as the
    // state is that of a prefix of the list: without fusion the gates that a later one has overtaken are applied first,
    // with fusion the batch is finished. Returns the length of the prefix.
    // `operations` are those of the constructor.
    unsigned long run(std::span<const gates::operation<T>> operations, thrust::complex<T>* state,
                      const run_hook& hook = {});

    // Applies all gates. The hook is also asked inside of passes, by the calling thread; false ends the run at once.
    // The state is then of no worth, and false is returned.
    // With a basis state the gates act on that one, whatever the array holds.
    bool run_to_end(std::span<const gates::operation<T>> operations, thrust::complex<T>* state, const run_hook& hook,
                    std::optional<unsigned long> basis_state = {});

    // Tells a schedule without fusion that the numbers of a gate have changed.
    void outdate(unsigned long gate);

    bool is_complete() const { return complete; }
    const std::vector<pass<T>>& passes() const { return all_passes; }
    bool fits(unsigned for_qubits, int for_threads) const {
        return nbqbits == for_qubits && team == storage::team_size(for_threads);
    }

private:
    // Runs the passes from `first` on. Between pieces of a pass `goes_on` is asked, by all threads, unless it is empty;
    // after each pass `between(pass)`, by the calling thread. False ends the run, of `goes_on` with the pass
    // unfinished. With a basis state the first pass begins there, and the array need not be written before.
    void run_passes(std::size_t first, thrust::complex<T>* state, const std::function<bool()>& goes_on,
                    const std::function<bool(std::size_t)>& between, std::optional<unsigned long> basis_state = {});
    void make_ready(std::span<const gates::operation<T>> operations);
    std::vector<storage::staged_work::stage> stages() const;
    unsigned long buffers_size() const;
    unsigned long complete_prefix(std::span<const gates::operation<T>> operations, std::size_t passes_run,
                                  thrust::complex<T>* state);

    unsigned nbqbits;
    int team;
    unsigned long gate_count;
    bool complete = true;
    std::vector<pass<T>> all_passes;
    std::vector<std::size_t> pass_of;  // every gate, made when first needed
    // Made by the first run: a chunk for every body of a pass, and how the passes are shared out.
    pbamplix::amplitude_array<T> buffers;
    std::unique_ptr<storage::staged_work> shared_out;
};

// Below this many qubits a state, of less than 64 KiB, is near the first-level cache's size, and what a plan costs is
// not won back in one run.
template <class T>
inline constexpr unsigned fewest_qubits_worth_planning =
    static_cast<unsigned>(std::countr_zero((64ul << 10) / sizeof(thrust::complex<T>)));

}  // namespace velacamplix::replay
