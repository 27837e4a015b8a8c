#include "statevector/channels/experiment.hpp"
#include "statevector/measurement/sampling.hpp"
#include "statevector/measurement/views.hpp"
#include "statevector/packs/precision.hpp"
#include "statevector/storage/aligned_array.hpp"
#include "statevector/storage/memory_guard.hpp"
#include "statevector/storage/parallel.hpp"

#include <velacamplix/inner_products.hpp>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numeric>

namespace velacamplix::channels {

namespace {

// From a state's total to its being what everything is divided by.
double factor_for(double norm_squared) {
    measurement::require_total(norm_squared);
    return 1 / std::sqrt(norm_squared);
}

// A finalizer of splitmix64: every bit of the sum decides about every bit of the result.
std::uint64_t mixed(std::uint64_t word) {
    word += 0x9E3779B97F4A7C15;
    word = (word ^ word >> 30) * 0xBF58476D1CE4E5B9;
    word = (word ^ word >> 27) * 0x94D049BB133111EB;
    return word ^ word >> 31;
}

bool is_later(const waiting_shot& a, const waiting_shot& b) {
    return a.site != b.site ? a.site > b.site : a.shot > b.shot;
}

template <class T>
void copy_state(const thrust::complex<T>* from, thrust::complex<T>* to, unsigned long size, int nthreads) {
    const unsigned long amplitude = sizeof(thrust::complex<T>);
    const auto* const source = reinterpret_cast<const T*>(from);
    auto* const target = reinterpret_cast<T*>(to);
    storage::parallel_shares(size, size * amplitude, nthreads, [=](unsigned long begin, unsigned long end) {
        std::memcpy(target + 2 * begin, source + 2 * begin, (end - begin) * amplitude);
    });
}

}  // namespace

void draw_event(waiting_shot& shot, const noise_list& noise, std::uint64_t seed, unsigned long from,
                std::uint32_t first_stream) {
    const shot_numbers numbers{seed, shot.shot, first_stream};
    const auto drawn = numbers.words(shot_stream::events, shot.index++);
    shot.site = noise.next_event(from, unit_number(drawn[0]));
    shot.choice = unit_number(drawn[1]);
}

void draw_first_events(const noise_list& noise, std::uint64_t seed, unsigned long first, unsigned long last,
                       std::vector<waiting_shot>& shots, std::vector<unsigned long>& quiet) {
    constexpr unsigned long at_once = 256;
    unsigned long numbers[at_once];
    std::uint64_t times[at_once], choices[at_once];
    for (; first < last; first += at_once) {
        const unsigned long count = std::min(at_once, last - first);
        std::iota(numbers, numbers + count, first);
        words_of_shots(seed, 0, shot_stream::events, 0, numbers, count, times, choices);
        for (unsigned long i = 0; i < count; ++i) {
            const unsigned long site = noise.next_event(0, unit_number(times[i]));
            if (site == noise.size()) {
                quiet.push_back(numbers[i]);
            } else {
                shots.push_back({site, numbers[i], unit_number(choices[i]), 1, 0});
            }
        }
    }
}

template <class T>
walker<T>::walker(experiment<T>& of, list_runner<T>& of_gates, bool is_caller)
    : shared(of), tells(is_caller), runner(of_gates) {
    hook = [this](unsigned long, unsigned long) {
        if (tells && shared.settings.hook) shared.settings.hook(shared.done, shared.settings.shots);
        return !shared.stopped;
    };
}

template <class T>
auto walker<T>::spare() -> state_array {
    if (spares.empty()) {
        storage::refuse_beyond_free_memory(shared.size() * sizeof(thrust::complex<T>));
        return storage::make_amplitudes<T>(shared.size());
    }
    state_array found_one = std::move(spares.back());
    spares.pop_back();
    return found_one;
}

template <class T>
void walker<T>::start(thrust::complex<T>* state) {
    if (shared.initial != nullptr) return copy_state(shared.initial, state, shared.size(), shared.threads_per_state);
    auto* const numbers = reinterpret_cast<T*>(state);
    storage::parallel_shares(shared.size(), shared.size() * sizeof(*state), shared.threads_per_state,
                             [=](unsigned long begin, unsigned long end) {
                                 std::fill(numbers + 2 * begin, numbers + 2 * end, T(0));
                                 if (begin == 0) numbers[0] = T(1);
                             });
}

template <class T>
void walker<T>::advance(unsigned long& gate, unsigned long to, thrust::complex<T>* state) {
    if (gate < to && !runner.run(gate, to, state, hook)) throw stopped_by_another();
    gate = std::max(gate, to);
}

// Some shots that are waiting for the same event, the earliest that there is, and that go the same way if that is
// known.
template <class T>
auto walker<T>::take(unsigned long here) -> group {
    const noise_list& noise = shared.noise;
    group taken;
    const std::lock_guard lock(shared.mutex);
    const auto& all = shared.shots;
    const unsigned long site = shared.next < all.size() ? all[shared.next].site : ~0ul;
    while (!returned.empty() && returned.front().site <= site && returned.front().site >= here) {
        if (!taken.empty() && returned.front().site != taken.front().site) break;
        std::pop_heap(returned.begin(), returned.end(), is_later);
        taken.push_back(returned.back());
        returned.pop_back();
    }
    if (!taken.empty() || site == ~0ul) return taken;
    if (!shared.settings.shares_prefixes) return {all[shared.next++]};

    // Where a state decides, nobody takes so many that others would have nothing to do.
    const bool is_known = noise.channel_at(site).is_mixture;
    const unsigned long most = is_known ? all.size() : 16 + all.size() / 256;
    const unsigned way = is_known ? noise.chosen(site, all[shared.next].choice) : 0;
    while (shared.next < all.size() && all[shared.next].site == site && taken.size() < most) {
        if (is_known && noise.chosen(site, all[shared.next].choice) != way) break;
        taken.push_back(all[shared.next++]);
    }
    return taken;
}

// All shots without an event; or one, where each is made by itself.
template <class T>
std::vector<unsigned long> walker<T>::take_quiet() {
    const std::lock_guard lock(shared.mutex);
    std::vector<unsigned long> taken;
    if (shared.settings.shares_prefixes || shared.quiet.empty()) {
        taken.swap(shared.quiet);
    } else {
        taken.push_back(shared.quiet.back());
        shared.quiet.pop_back();
    }
    return taken;
}

template <class T>
void walker<T>::work() {
    const unsigned long sites = shared.noise.size();
    state_array state = spare();
    unsigned long gate = 0, here = 0;
    start(state.get());
    for (group shots = take(here); !shots.empty(); shots = take(here)) {
        if (!hook(0, 0)) throw stopped_by_another();
        if (!shared.settings.shares_prefixes) {
            start(state.get());
            follow(std::move(shots), 0, state.get());
            continue;
        }
        here = shots.front().site;
        if (here == sites) {
            advance(gate, shared.operations.size(), state.get());
            finish(shots, state.get());
            continue;
        }
        advance(gate, shared.noise.site(here).gate, state.get());
        if (density_site != here) density.clear();
        density_site = here;
        for (part& some : decide(shots, here, state.get())) {
            if (some.chosen != shared.noise.channel_at(here).usual) {
                branch(std::move(some), here, state.get());
                continue;
            }
            draw_next(some.shots, here + 1);
            for (const waiting_shot& shot : some.shots) {
                returned.push_back(shot);
                std::push_heap(returned.begin(), returned.end(), is_later);
            }
        }
    }
    for (auto quiet = take_quiet(); !quiet.empty(); quiet = take_quiet()) {
        if (!shared.settings.shares_prefixes) {
            start(state.get());
            gate = 0;
        }
        advance(gate, shared.operations.size(), state.get());
        finish(quiet, 0, state.get());
    }
    spares.push_back(std::move(state));
}

// The shots by the operator that acts on them. Where a state decides it reads `density`, if that is not empty.
template <class T>
auto walker<T>::decide(const group& shots, unsigned long site, const thrust::complex<T>* state) -> std::vector<part> {
    const bool is_mixture = shared.noise.channel_at(site).is_mixture;
    if (!is_mixture && density.empty()) {
        const auto& qubits = shared.noise.site(site).qubits;
        density.resize(1ul << 2 * qubits.size());
        pbamplix::cpu::reduced_density_matrix(state, shared.nqubits, qubits, density.data(), shared.threads_per_state);
        double trace = 0;
        for (unsigned long i = 0; i < density.size(); i += (1ul << qubits.size()) + 1) trace += density[i].real();
        measurement::require_total(trace);
    }
    std::vector<part> parts;
    for (const waiting_shot& shot : shots) {
        const noise_list::decision made = is_mixture ? noise_list::decision{shared.noise.chosen(site, shot.choice), 1}
                                                     : shared.noise.decided(site, shot.choice, density);
        const auto same =
            std::find_if(parts.begin(), parts.end(), [&](const part& p) { return p.chosen == made.chosen; });
        if (same != parts.end()) {
            same->shots.push_back(shot);
        } else {
            parts.push_back({made.chosen, made.probability, {shot}});
        }
    }
    std::sort(parts.begin(), parts.end(), [](const part& a, const part& b) { return a.chosen < b.chosen; });
    return parts;
}

// Applies a part's operator, if that is not the usual one, and notes it.
template <class T>
void walker<T>::act(const part& some, unsigned long site, thrust::complex<T>* state) {
    const double factor = shared.noise.channel_at(site).is_mixture ? 1 : factor_for(some.probability);
    for (const auto& op : shared.noise.template gates_of<T>(site, some.chosen, factor)) {
        kernels::run_parallel(gates::prepare(op, shared.nqubits), state, shared.threads_per_state);
    }
}

template <class T>
void walker<T>::draw_next(group& shots, unsigned long from) {
    for (waiting_shot& shot : shots) draw_event(shot, shared.noise, shared.settings.seed, from, first_stream);
}

// What has happened to shots is hashed one event after another.
void note(std::vector<waiting_shot>& shots, unsigned long site, unsigned chosen) {
    for (waiting_shot& shot : shots) shot.history = mixed(shot.history ^ mixed(site << 12 | chosen));
}

template <class T>
void walker<T>::branch(part some, unsigned long site, const thrust::complex<T>* state) {
    state_array other = spare();
    copy_state(state, other.get(), shared.size(), shared.threads_per_state);
    act(some, site, other.get());
    note(some.shots, site, some.chosen);
    draw_next(some.shots, site + 1);
    follow(std::move(some.shots), shared.noise.site(site).gate + shared.noise.site(site).usual_is_gate, other.get());
    spares.push_back(std::move(other));
}

// Takes shots of one past to their end. Where they part the largest group takes the state, the smaller ones go before
// it with copies: so at most log2(shots) copies wait.
template <class T>
void walker<T>::follow(group shots, unsigned long gate, thrust::complex<T>* state) {
    const noise_list& noise = shared.noise;
    while (true) {
        const unsigned long site = std::min_element(shots.begin(), shots.end(), [](const auto& a, const auto& b) {
                                       return a.site < b.site;
                                   })->site;
        if (site == noise.size()) break;
        const auto& where = noise.site(site);
        advance(gate, where.gate, state);

        group others, here;
        for (const waiting_shot& shot : shots) (shot.site == site ? here : others).push_back(shot);
        density.clear();
        density_site.reset();
        std::vector<part> parts = decide(here, site, state);
        density.clear();
        const unsigned usual = noise.channel_at(site).usual;
        for (part& some : parts) {
            if (some.chosen != usual) continue;
            draw_next(some.shots, site + 1);
            others.insert(others.end(), some.shots.begin(), some.shots.end());
        }
        std::erase_if(parts, [=](const part& some) { return some.chosen == usual; });
        if (!others.empty()) parts.push_back({usual, 1, std::move(others)});

        const auto largest = std::max_element(
            parts.begin(), parts.end(), [](const part& a, const part& b) { return a.shots.size() < b.shots.size(); });
        std::iter_swap(largest, parts.end() - 1);
        part last = std::move(parts.back());
        parts.pop_back();
        for (part& some : parts) {
            if (some.chosen != usual) {
                branch(std::move(some), site, state);
            } else {
                state_array other = spare();
                copy_state(state, other.get(), shared.size(), shared.threads_per_state);
                follow(std::move(some.shots), gate, other.get());
                spares.push_back(std::move(other));
            }
        }
        if (last.chosen != usual) {
            act(last, site, state);
            note(last.shots, site, last.chosen);
            draw_next(last.shots, site + 1);
            gate = where.gate + where.usual_is_gate;
        }
        shots = std::move(last.shots);
    }
    advance(gate, shared.operations.size(), state);
    finish(shots, state);
}

template <class T>
void walker<T>::finish(const group& shots, const thrust::complex<T>* state) {
    std::vector<unsigned long> numbers;
    for (const waiting_shot& shot : shots) numbers.push_back(shot.shot);
    finish(numbers, shots.front().history, state);
}

// The end of some shots, at least one, that are all in this state.
template <class T>
void walker<T>::finish(const std::vector<unsigned long>& shots, std::uint64_t history,
                       const thrust::complex<T>* state) {
    const auto& settings = shared.settings;
    if (settings.outcomes != nullptr) {
        std::vector<unsigned long> words(shots.size()), outcomes(shots.size());
        words_of_shots(settings.seed, first_stream, shot_stream::outcome, 0, shots.data(), shots.size(), words.data(),
                       outcomes.data());
        measurement::given_outputs engine{words.data()};
        const pbamplix::SVSequence<thrust::complex<T>> plain{state, shared.nqubits, shared.size()};
        if constexpr (std::is_same_v<T, double>) {
            pbamplix::cpu::pick_shots_of_any_norm(plain, outcomes.data(), engine, outcomes.size(),
                                                  shared.threads_per_state, settings.measured);
        } else {
            using precise = pbamplix::precise_view<pbamplix::SVSequence<thrust::complex<T>>>;
            pbamplix::cpu::pick_shots_of_any_norm(precise{plain}, outcomes.data(), engine, outcomes.size(),
                                                  shared.threads_per_state, settings.measured);
        }
        for (std::size_t i = 0; i < shots.size(); ++i) {
            settings.outcomes[shots[i] - settings.first_shot] = outcomes[i];
        }
    }
    trajectory_record record{history, shots.size(), {}};
    double norm = 1;
    if (!settings.observables.empty() && !shared.noise.keeps_norms()) {
        norm = pbamplix::cpu::overlap(state, state, shared.size(), shared.threads_per_state).real();
        measurement::require_total(norm);
    }
    for (const auto& observable : settings.observables) {
        thrust::complex<double> sum(0, 0);
        for (const auto& value :
             pbamplix::cpu::term_values(state, observable, shared.size(), shared.threads_per_state)) {
            sum += value;
        }
        record.values.push_back(sum / norm + observable.constant);
    }
    found.push_back(std::move(record));
    shared.done += shots.size();
    if (!hook(0, 0)) throw stopped_by_another();
}

template <class T>
void walker<T>::apply(waiting_shot shot, unsigned long first_site, thrust::complex<T>* state, std::uint32_t stream) {
    first_stream = stream;
    unsigned long gate = gate_before(first_site);
    draw_event(shot, shared.noise, shared.settings.seed, 0, stream);
    for (; shot.site != shared.noise.size();
         draw_event(shot, shared.noise, shared.settings.seed, shot.site + 1, stream)) {
        const auto& where = shared.noise.site(shot.site);
        advance(gate, where.gate, state);
        density.clear();
        const std::vector<part> parts = decide({shot}, shot.site, state);
        if (parts.front().chosen == shared.noise.channel_at(shot.site).usual) continue;
        act(parts.front(), shot.site, state);
        gate = where.gate + where.usual_is_gate;
    }
    advance(gate, shared.operations.size(), state);
    normalise(state);
}

template <class T>
void walker<T>::walk(unsigned long first, unsigned long last, thrust::complex<T>* state) {
    unsigned long gate = gate_before(first);
    const bool is_end = last == shared.noise.size();
    advance(gate, is_end ? shared.operations.size() : gate_before(last), state);
    if (is_end) normalise(state);
}

// The gates that have acted in front of a site: none for the first, all for the number of sites.
template <class T>
unsigned long walker<T>::gate_before(unsigned long site) const {
    if (site == 0) return 0;
    return site == shared.noise.size() ? shared.operations.size() : shared.noise.site(site).gate;
}

template <class T>
void walker<T>::normalise(thrust::complex<T>* state) {
    if (shared.noise.keeps_norms()) return;
    const double norm = pbamplix::cpu::overlap(state, state, shared.size(), shared.threads_per_state).real();
    const T factor = static_cast<T>(factor_for(norm));
    auto* const numbers = reinterpret_cast<T*>(state);
    storage::parallel_shares(shared.size(), shared.size() * sizeof(*state), shared.threads_per_state,
                             [=](unsigned long begin, unsigned long end) {
                                 for (unsigned long i = 2 * begin; i < 2 * end; ++i) numbers[i] *= factor;
                             });
}

template class walker<float>;
template class walker<double>;

}  // namespace velacamplix::channels
