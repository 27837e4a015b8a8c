#include "machine_limits.hpp"

#include <omp.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <vector>

namespace velacamplix::bench {
namespace {

using pack = double __attribute__((vector_size(64), aligned(16), may_alias));
using clock = std::chrono::steady_clock;

double since(clock::time_point start) { return std::chrono::duration<double>(clock::now() - start).count(); }

// The widest vectors the machine has, as the library's builds use them.
#if defined(__x86_64__)
#define VELACAMPLIX_WIDEST __attribute__((target_clones("arch=skylake-avx512", "avx2", "default")))
#else
#define VELACAMPLIX_WIDEST
#endif

VELACAMPLIX_WIDEST void sweep_block(double* begin, std::size_t count, double factor) {
    const pack f = pack{} + factor;
    std::size_t i = 0;
    for (; i + 32 <= count; i += 32) {
        for (std::size_t k = 0; k < 32; k += 8) {
            pack& p = *reinterpret_cast<pack*>(begin + i + k);
            p = p * f;
        }
    }
    for (; i < count; ++i) begin[i] *= factor;
}

VELACAMPLIX_WIDEST double read_block(const double* begin, std::size_t count) {
    pack sums[4] = {};
    for (std::size_t i = 0; i + 32 <= count; i += 32) {
        for (std::size_t k = 0; k < 4; ++k) sums[k] += *reinterpret_cast<const pack*>(begin + i + 8 * k);
    }
    const pack all = (sums[0] + sums[1]) + (sums[2] + sums[3]);
    double sum = 0;
    for (int k = 0; k < 8; ++k) sum += all[k];
    return sum;
}

struct share {
    std::size_t begin;
    std::size_t count;
};

share share_of_thread(std::size_t count) {
    const auto team = static_cast<std::size_t>(omp_get_num_threads());
    const auto thread = static_cast<std::size_t>(omp_get_thread_num());
    const std::size_t begin = count / 32 * thread / team * 32;
    const std::size_t end = thread + 1 == team ? count : count / 32 * (thread + 1) / team * 32;
    return {begin, end - begin};
}

// Not known to be 1, so that nothing is optimised away.
volatile double one = 1.0;
volatile double sink = 0.0;

}  // namespace

double sweep_seconds(void* array, std::size_t bytes, int threads) {
    auto* const values = static_cast<double*>(array);
    const double factor = one;
    const auto start = clock::now();
#pragma omp parallel num_threads(threads)
    {
        const share mine = share_of_thread(bytes / sizeof(double));
        sweep_block(values + mine.begin, mine.count, factor);
    }
    return since(start);
}

double read_seconds(const void* array, std::size_t bytes, int threads) {
    const auto* const values = static_cast<const double*>(array);
    double sum = 0;
    const auto start = clock::now();
#pragma omp parallel num_threads(threads) reduction(+ : sum)
    {
        const share mine = share_of_thread(bytes / sizeof(double));
        sum += read_block(values + mine.begin, mine.count);
    }
    const double seconds = since(start);
    sink = sum;
    return seconds;
}

double cache_sweep_seconds_per_amplitude(int threads) {
    constexpr std::size_t bytes = 256 << 10;
    constexpr int repeats = 400;
    std::vector<double> measured;
    for (int attempt = 0; attempt < 9; ++attempt) {
        double slowest = 0;
#pragma omp parallel num_threads(threads)
        {
            const std::unique_ptr<double, decltype(&std::free)> block(
                static_cast<double*>(std::aligned_alloc(4096, bytes)), &std::free);
            const std::size_t count = bytes / sizeof(double);
            std::fill_n(block.get(), count, 1.0);
            const double factor = one;
            sweep_block(block.get(), count, factor);
#pragma omp barrier
            const auto start = clock::now();
            for (int i = 0; i < repeats; ++i) sweep_block(block.get(), count, factor);
            const double seconds = since(start);
#pragma omp critical
            slowest = std::max(slowest, seconds);
        }
        measured.push_back(slowest / repeats / (static_cast<double>(bytes) / 16) / threads);
    }
    std::nth_element(measured.begin(), measured.begin() + 4, measured.end());
    return measured[4];
}

}  // namespace velacamplix::bench
