#pragma once

#include "statevector/replay/pass.hpp"

#include <velacamplix/storage.hpp>

#include <functional>
#include <span>
#include <variant>
#include <vector>

namespace velacamplix::distributed {

// Gates cut into passes over one part of a state, whichever it is: the qubits outside are constants of a part, as those
// outside a chunk are of the chunk. All mixing targets are among the lowest `part_bits` qubits. Every
// amplitude goes through the operations of its gates in the order of the list.
template <class T>
class part_schedule {
public:
    part_schedule(std::span<const gates::operation<T>> operations, unsigned nbqbits, unsigned part_bits, int nthreads);

    // Part `number` begins at amplitude number << part_bits of the whole state. Calls after_pass() behind every pass.
    void run(unsigned long number, thrust::complex<T>* part, const std::function<void()>& after_pass);

    unsigned long passes() const { return passes_.size(); }

private:
    // Steps on the part where it stands, or on one chunk of it after another.
    using work = std::variant<std::vector<replay::step<T>>, replay::chunked<T>>;

    void run_steps(const std::vector<replay::step<T>>& steps, unsigned long number, thrust::complex<T>* part) const;
    void run_chunks(const replay::chunked<T>& chunks, unsigned long number, thrust::complex<T>* part) const;

    unsigned nbqbits_;
    unsigned part_bits_;
    int team_;
    std::vector<work> passes_;
    pbamplix::amplitude_array<T> buffers_;  // a chunk for every body of a pass
};

}  // namespace velacamplix::distributed
