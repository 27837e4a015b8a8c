#include "bindings.hpp"
#include "held_state.hpp"
#include "watch.hpp"

#include <algorithm>
#include <map>
#include <memory>
#include <utility>
#include <vector>

namespace velacamplix::python {

namespace {

template <class T>
using Amplitudes = py::array_t<std::complex<T>, py::array::c_style>;

// Copies the amplitudes to `out`, whose index has qubit q as bit q or, permuted, qubit 0 as most significant bit.
template <class T>
void copy_amplitudes(HeldState<T>& held, Amplitudes<T> out, bool permuted) {
    const PinnedToFill pinned(out);
    std::complex<T>* target = pinned.target();
    held.with_state([&](auto& state) {
        if (pinned.size() != state.size) {
            throw std::invalid_argument("the array does not have one entry per basis state");
        }
        const auto* source = reinterpret_cast<const std::complex<T>*>(state.amplitudes.get());
        if (!permuted) {
            std::copy_n(source, state.size, target);
        } else if (state.nqubits < 8) {
            // On so few qubits the library's export clears what is so small that its square is zero.
            for (unsigned long i = 0; i < state.size; ++i) {
                target[state.nqubits == 0 ? 0 : pbamplix::cpu::swap_lsb_msb(i, state.nqubits)] = source[i];
            }
        } else {
            state.get_permuted_statevector(reinterpret_cast<thrust::complex<T>*>(target), T(0));
        }
    });
}

template <class T>
using Entries = std::vector<std::pair<unsigned long, thrust::complex<T>>>;

template <class T>
void sort_by_key(Entries<T>& entries) {
    std::sort(entries.begin(), entries.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
}

unsigned long reversed(unsigned long bits, unsigned int count) {
    return count == 0 ? 0 : pbamplix::cpu::swap_lsb_msb(bits, count);
}

// The amplitudes above the threshold in parts that are each in order of their keys.
template <class T>
std::vector<Entries<T>> found_amplitudes(const typename HeldState<T>::State& state, T threshold, bool permuted,
                                         const pbamplix::work_hook& hook) {
    const unsigned int inside = std::min(state.nqubits, 18u);
    const unsigned int outside = state.nqubits - inside;
    std::vector<Entries<T>> parts(1ul << outside);
    for (unsigned long part = 0; part < parts.size(); ++part) {
        const thrust::complex<T>* first = state.amplitudes.get() + (part << inside);
        const pbamplix::SVSequence<thrust::complex<T>> view{first, inside, 1ul << inside};
        std::map<unsigned long, thrust::complex<T>> map;
        pbamplix::cpu::permute_and_map_vector(view, &map, T(threshold * threshold), state.num_threads);
        parts[part].reserve(map.size());
        for (const auto& [key, value] : map) {
            const unsigned long whole =
                permuted ? key << outside | reversed(part, outside) : part << inside | reversed(key, inside);
            parts[part].emplace_back(whole, value);
        }
        if (!permuted) sort_by_key<T>(parts[part]);
        if (hook) hook(part, parts.size());
    }
    return parts;
}

// Writes all entries, whose keys have n bits, by increasing key. A range of keys at a time is put into order.
template <class T>
void merge_parts(const std::vector<Entries<T>>& parts, unsigned int n, unsigned long* keys, std::complex<T>* values,
                 const pbamplix::work_hook& hook) {
    const unsigned long width = 1ul << (n - std::min(n, 10u));
    std::vector<std::size_t> merged(parts.size());
    Entries<T> range;
    for (unsigned long end = width; end <= 1ul << n; end += width) {
        range.clear();
        for (std::size_t part = 0; part < parts.size(); ++part) {
            std::size_t& next = merged[part];
            for (; next < parts[part].size() && parts[part][next].first < end; ++next) {
                range.push_back(parts[part][next]);
            }
        }
        sort_by_key<T>(range);
        for (const auto& [key, value] : range) {
            *keys++ = key;
            *values++ = value;
        }
        if (hook) hook(end - 1, 1ul << n);
    }
}

// Amplitudes of a magnitude above the threshold: keys, increasing, and values. A key has qubit q as bit q or, permuted,
// qubit 0 as most significant bit. The function hears numbers without a meaning.
template <class T>
std::pair<py::array_t<unsigned long>, py::array_t<std::complex<T>>> mapped_amplitudes(HeldState<T>& held, T threshold,
                                                                                      bool permuted,
                                                                                      py::object function,
                                                                                      double interval, bool signals) {
    Watch watch(std::move(function), interval, signals);
    return watch.over([&](const auto& hook) {
        unsigned int n = 0;
        const auto parts = held.with_state([&](auto& state) {
            n = state.nqubits;
            return found_amplitudes<T>(state, threshold, permuted, hook);
        });
        std::size_t count = 0;
        for (const auto& part : parts) count += part.size();
        py::array_t<unsigned long> keys(static_cast<py::ssize_t>(count));
        py::array_t<std::complex<T>> values(static_cast<py::ssize_t>(count));
        unsigned long* const first_key = keys.mutable_data();
        std::complex<T>* const first_value = values.mutable_data();
        {
            const Unlocked unlocked;
            merge_parts(parts, n, first_key, first_value, hook);
        }
        return std::pair(std::move(keys), std::move(values));
    });
}

// Keys have the first listed qubit as most significant bit. Probabilities above the threshold are listed.
template <class T>
std::pair<py::array_t<unsigned long>, py::array_t<double>> mapped_distribution(
    HeldState<T>& held, double threshold, const std::vector<unsigned int>& qubits) {
    const std::unique_ptr<std::map<unsigned long, double>> map(held.with_state([&](auto& state) {
        bits_within(state, qubits);
        return pbamplix::cpu::map_marginal_distribution(precise(state), threshold, qubits, state.num_threads);
    }));
    const auto count = static_cast<py::ssize_t>(map->size());
    py::array_t<unsigned long> keys(count);
    py::array_t<double> values(count);
    unsigned long* key = keys.mutable_data();
    double* value = values.mutable_data();
    for (const auto& [k, v] : *map) {
        *key++ = k;
        *value++ = v;
    }
    return {std::move(keys), std::move(values)};
}

template <class T>
void bind_one_precision(py::module_& module) {
    module.def("copy_amplitudes", &copy_amplitudes<T>, py::arg("state"), py::arg("out").noconvert(),
               py::arg("permuted"));
    module.def("mapped_amplitudes", &mapped_amplitudes<T>, py::arg("state"), py::arg("threshold"), py::arg("permuted"),
               py::arg("function") = py::none(), py::arg("interval") = 0.05, py::arg("signals") = false);
    module.def("mapped_distribution", &mapped_distribution<T>, py::arg("state"), py::arg("threshold"),
               py::arg("qubits"));
}

}  // namespace

void bind_exports(py::module_& module) {
    bind_one_precision<float>(module);
    bind_one_precision<double>(module);
}

}  // namespace velacamplix::python
