// A host's buffer of complex numbers need only lie where their parts may lie: NumPy's arrays of complex128, for one,
// may begin at any multiple of 8 bytes, while thrust::complex<double> asks for 16. Whatever takes such a buffer does
// with it, bit for bit, what it does with one on a 64-byte boundary.

#include "support/precision.hpp"
#include "support/random_state.hpp"
#include "support/state_vector.hpp"

#include <velacamplix/kernels.hpp>
#include <velacamplix/loading.hpp>
#include <velacamplix/measurement.hpp>
#include <velacamplix/observable.hpp>

#include <cstdlib>
#include <functional>
#include <memory>

using namespace support;
using namespace pbamplix::cpu;
using reference::Qubits;

PRECISION_SUITE(buffer_at_any_address);

namespace {

// Numbers that begin `offset` bytes behind a 64-byte boundary.
template <class Number>
class Placed {
public:
    Placed(const void* values, std::size_t count, std::size_t offset)
        : bytes_(count * sizeof(Number)),
          offset_(offset),
          memory_(static_cast<unsigned char*>(std::aligned_alloc(64, (bytes_ + offset + 63) / 64 * 64 + 64))) {
        if (values != nullptr) std::memcpy(memory_.get() + offset, values, bytes_);
    }

    Number* data() { return reinterpret_cast<Number*>(memory_.get() + offset_); }
    std::string bytes() const { return {reinterpret_cast<const char*>(memory_.get() + offset_), bytes_}; }

private:
    struct Free {
        void operator()(unsigned char* p) const { std::free(p); }
    };

    std::size_t bytes_, offset_;
    std::unique_ptr<unsigned char, Free> memory_;
};

template <class Number>
std::string bytes_of(const std::vector<Number>& numbers) {
    return {reinterpret_cast<const char*>(numbers.data()), numbers.size() * sizeof(Number)};
}
template <class Number>
std::string bytes_of(Number number) {
    return bytes_of(std::vector<Number>{number});
}

template <class T>
using C = thrust::complex<T>;

// Works on a host's array of 2^n amplitudes; returns the bytes of what it answers.
template <class T>
using Work = std::function<std::string(C<T>* array, unsigned int n, int threads)>;

template <class T>
void expect_the_same_at_half_an_amplitude(const std::string& name, unsigned int n, const Work<T>& work) {
    const auto start = random_state<T>(n, Values::ordinary, n);
    for (const int threads : {1, 3}) {
        Placed<C<T>> array(start.data(), start.size(), 0), odd(start.data(), start.size(), sizeof(T));
        const std::string expected = work(array.data(), n, threads);
        EXPECT_EQ(expected == work(odd.data(), n, threads), true) << name << ", " << n << " qubits";
        EXPECT_EQ(array.bytes() == odd.bytes(), true) << name << ", " << n << " qubits";
    }
}

template <class T>
std::vector<C<T>> random_matrix(unsigned int entries) {
    return as_thrust(random_coefficients<T>(entries, entries));
}

const unsigned int sizes[] = {3, 4, 9, 17};

}  // namespace

TYPED_TEST(buffer_at_any_address, is_read_by_a_reset) {
    using T = TypeParam;
    for (const unsigned int n : {0u, 1u, 2u, 5u, 9u, 17u}) {
        expect_the_same_at_half_an_amplitude<T>("reset", n, [](C<T>* array, unsigned int qubits, int threads) {
            StateVector<T> v(qubits);
            v.set_num_threads(threads);
            v.reset(reinterpret_cast<unsigned long>(array));
            return std::string(reinterpret_cast<const char*>(v.amplitudes.get()), v.size * sizeof(C<T>));
        });
    }
}

// 16 MiB and more go past the caches.
TYPED_TEST(buffer_at_any_address, is_filled_by_every_export) {
    using T = TypeParam;
    for (const unsigned int n : {0u, 1u, 2u, 6u, 8u, 10u, 16u, 21u}) {
        const auto start = random_state<T>(n, Values::ordinary, n);
        for (const T threshold : {T(0), T(0.5)}) {
            LoadedVector<T> v(start, 3);
            const auto filled = [&](auto number, unsigned long count, std::size_t offset, auto fill) {
                Placed<decltype(number)> out(nullptr, count, offset);
                fill(out.data());
                return out.bytes();
            };
            const auto state = [&](C<T>* out) { v.get_permuted_statevector(out, threshold); };
            const auto matrix = [&](C<T>* out) { v.get_permuted_density_matrix(out, threshold); };
            const auto diagonal = [&](T* out) { v.get_permuted_density_diag(out, threshold); };
            const unsigned long size = v.size, rows = 1ul << n / 2;
            for (const std::size_t offset : {sizeof(T), 3 * sizeof(T)}) {
                EXPECT_TRUE(filled(C<T>(), size, 0, state) == filled(C<T>(), size, offset, state)) << n << " qubits";
                EXPECT_TRUE(filled(C<T>(), size, 0, matrix) == filled(C<T>(), size, offset, matrix)) << n << " qubits";
                EXPECT_TRUE(filled(T(), rows, 0, diagonal) == filled(T(), rows, offset, diagonal)) << n << " qubits";
            }
        }
    }
}

TYPED_TEST(buffer_at_any_address, is_data_to_be_loaded) {
    using T = TypeParam;
    for (const unsigned int n : {4u, 9u, 14u}) {
        const auto start = random_state<T>(n, Values::ordinary, n);
        for (const Qubits& qubits : {Qubits{0}, Qubits{n - 1, 1}, Qubits{2, 0, n - 2}}) {
            const auto data = random_coefficients<double>(1ul << qubits.size(), 5);
            const auto loaded = [&](std::size_t offset, int kind) {
                Placed<C<double>> placed(data.data(), data.size(), offset);
                LoadedVector<T> v(start, 2);
                const auto address = static_cast<unsigned int>(qubits.size() / 2);
                if (kind == 0) v.apply_state_preparation(placed.data(), qubits);
                if (kind == 1) v.apply_qram(placed.data(), qubits, address);
                if (kind == 2) state_preparation<double>(v.amplitudes.get(), placed.data(), n, qubits, 2);
                return std::string(reinterpret_cast<const char*>(v.amplitudes.get()), v.size * sizeof(C<T>));
            };
            for (const int kind : {0, 1, 2}) EXPECT_TRUE(loaded(0, kind) == loaded(8, kind)) << kind << ", " << n;
        }
    }
}

TYPED_TEST(buffer_at_any_address, is_worked_on_by_every_kernel) {
    using T = TypeParam;
    const auto m2 = random_matrix<T>(4), m4 = random_matrix<T>(16), m8 = random_matrix<T>(64);
    for (const unsigned int n : sizes) {
        for (const Qubits& controls : {Qubits{}, Qubits{2}}) {
            for (const unsigned int q : {0u, 1u, n - 1}) {
                if (q == 2) continue;
                const unsigned int p = q == 0 ? 1 : 0;
                const auto expect = [&](const std::string& name, auto act) {
                    expect_the_same_at_half_an_amplitude<T>(name, n, [&](C<T>* array, unsigned int, int threads) {
                        act(array, threads);
                        return std::string();
                    });
                };
                const auto one = [&]<class G, class... Params>(const std::string& name, G, Params... params) {
                    expect(name, [&](C<T>* array, int threads) {
                        Template1QBGate<G>::apply_controlled(array, q, n, threads, controls, params...);
                    });
                };
                one("X", GateX{});
                one("Y", GateY{});
                one("H", GateH{});
                one("ZtoY", GateZtoY{});
                one("YtoZ", GateYtoZ{});
                one("RX", GateRX{}, C<T>(T(0.6), 0), C<T>(0, T(-0.8)));
                one("RY", GateRY{}, C<T>(T(0.6), 0), C<T>(T(0.8), 0));
                one("2x2", _Gate1QB<true>{}, m2[0], m2[1], m2[2], m2[3]);
                const auto two = [&]<class G, class... Params>(const std::string& name, G, Params... params) {
                    expect(name, [&](C<T>* array, int threads) {
                        Template2QBGate<G>::apply_controlled(array, q, p, n, threads, controls, params...);
                    });
                };
                two("SWAP", GateSWAP{});
                two("ISWAP", GateISWAP{});
                two("SQRTSWAP", GateSQRTSWAP{});
                two("HH", GateHH{});
                two("4x4", _Gate2QB<true>{}, m4);
                expect("Z", [&](C<T>* array, int threads) {
                    _TemplatePartialDiagGate<GateZ, true>::apply_controlled(array, {q}, n, threads, controls);
                });
                expect("T", [&](C<T>* array, int threads) {
                    _TemplatePartialDiagGate<GateT, true>::apply_controlled(array, {q}, n, threads, controls);
                });
                expect("PH", [&](C<T>* array, int threads) {
                    _TemplatePartialDiagGate<GatePH<T>, false>::apply_controlled(array, {q}, n, threads, controls,
                                                                                 GatePH<T>{m2[0]});
                });
                expect("diagonal", [&](C<T>* array, int threads) {
                    _DiagGate<true>::apply_controlled(array, {q, p}, n, threads, controls, m2);
                });
                if (n == 3 || q == n - 1) continue;
                expect("8x8", [&](C<T>* array, int threads) {
                    apply_nbqbit_gate<C<T>, false, true>(array, {q, n - 1, p}, controls, m8, n, threads);
                });
            }
        }
    }
}

TYPED_TEST(buffer_at_any_address, is_read_projected_and_loaded_as_a_state) {
    using T = TypeParam;
    using View = pbamplix::SVSequence<C<T>>;
    using Diagonal = pbamplix::DMDiagSequence<T>;
    const auto read = [](auto view, int threads) {
        const Qubits all = {0, 1};
        std::mt19937_64 rng(5);
        std::vector<unsigned long> shots(50);
        pick_shots_state(view, shots.data(), rng, 50ul, threads, all);
        using P = typename decltype(view)::proba_type;
        const std::unique_ptr<std::map<unsigned long, P>> marginals(
            map_marginal_distribution(view, P(0), all, threads));
        std::string answer = bytes_of(cumulative_probability(view, 1, all, threads)) + bytes_of(shots);
        for (const auto& [outcome, probability] : *marginals) answer += bytes_of(outcome) + bytes_of(probability);
        return answer;
    };
    for (const unsigned int n : {2u, 4u, 8u, 12u, 18u}) {
        const auto view = [n](C<T>* array) { return View{array, n, 1ul << n}; };
        const auto diagonal = [n](C<T>* array) { return Diagonal{array, n / 2, 1ul << n / 2}; };
        const auto expect = [n](const std::string& name, const Work<T>& work) {
            expect_the_same_at_half_an_amplitude<T>(name, n, work);
        };
        expect("read", [&](C<T>* array, unsigned int, int threads) { return read(view(array), threads); });
        expect("read in double", [&](C<T>* array, unsigned int, int threads) {
            std::vector<double> distribution(4);
            write_distribution(pbamplix::precise_view<View>{view(array)}, distribution.data(), 0.0, {1, 0}, threads);
            return bytes_of(distribution) + read(pbamplix::precise_view<View>{view(array)}, threads);
        });
        if (n > 2) {
            expect("diagonal read", [&](C<T>* array, unsigned int, int threads) {
                return read(diagonal(array), threads) +
                       read(pbamplix::precise_view<Diagonal>{diagonal(array)}, threads);
            });
        }
        expect("copied", [&](C<T>* array, unsigned int, int threads) {
            std::vector<C<T>> out(1ul << n);
            _permute_and_copy_vector_no_simd<T>(view(array), out.data(), T(0.25), threads);
            std::string answer = bytes_of(out);
            if (n >= 8) _permute_and_copy_vector_fast<true>(view(array), out.data(), threads, T(0.25));
            answer += bytes_of(out);
            std::map<unsigned long, C<T>> map;
            permute_and_map_vector(view(array), &map, T(0), threads);
            for (const auto& [key, value] : map) answer += bytes_of(key) + bytes_of(value);
            return answer;
        });
        expect("projected", [&](C<T>* array, unsigned int, int threads) {
            _project(array, 1ul << n, {0}, 1, threads);
            pbamplix::cpu::project<double>(array, 1ul << n, {}, 0, threads);
            pbamplix::cpu::project_then_reset<double>(array, 1ul << n, {1}, 1, threads);
            return std::string();
        });
        expect("loaded", [&](C<T>* array, unsigned int, int threads) {
            const auto data = as_thrust(random_coefficients<double>(4, 5));
            _state_preparation(array, data.data(), n, {1, 0}, threads);
            state_preparation<double>(array, data.data(), n, {n - 1, 0}, threads);
            _qram(array, data.data(), n, {0, n - 1}, 1, threads);
            const unsigned long values[] = {1, 0};
            _binary_qram(array, values, n, {0, n - 1}, 1, threads);
            _phase_oracle(array, {1}, {n - 1, 0}, 1ul << n, n, threads);
            return std::string();
        });
        expect("observed", [&](C<T>* array, unsigned int, int threads) {
            WObservable<T> observable;
            observable.coefficients = {C<T>(1, 0), C<T>(2, 0)};
            observable.flip_masks = {1, 3};
            observable.phase_masks = {2, 1};
            observable.y_counts = {0, 1};
            observable.nqubits = n / 2;
            WObservable<double> wide;
            wide.coefficients = {C<double>(1, 0), C<double>(2, 0)};
            wide.flip_masks = observable.flip_masks;
            wide.phase_masks = observable.phase_masks;
            wide.y_counts = observable.y_counts;
            wide.nqubits = n / 2;
            std::string answer = bytes_of(_expectation_value(array, observable, 1ul << n, threads)) +
                                 bytes_of(term_values(array, wide, 1ul << n, threads));
            if (n >= 4) {
                answer += bytes_of(_expectation_value_density_matrix(array, observable, threads, n / 2)) +
                          bytes_of(term_values_density_matrix(array, wide, threads, n / 2));
            }
            std::mt19937_64 rng(7);
            const std::vector<pbamplix::SimpleTerm<T>> terms = {{{0, 1}, "XY", C<T>(1, 0)}};
            for (const auto& [mean, error] : _evaluate_terms(array, terms, 20ul, rng, n, threads, false)) {
                answer += bytes_of(mean) + bytes_of(error);
            }
            return answer;
        });
    }
}
