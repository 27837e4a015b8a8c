#include "bindings.hpp"
#include "held_program.hpp"
#include "held_state.hpp"
#include "watch.hpp"

#include <velacamplix/batch.hpp>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace velacamplix::python {

namespace {

using Qubits = std::vector<unsigned int>;
using Observables = std::vector<const WObservable<double>*>;
template <class T>
using State = typename HeldState<T>::State;
template <class T>
using States = std::vector<HeldState<T>*>;
template <class T>
using Programs = std::vector<HeldProgram<T>*>;

// Programs of Python's that are run as a batch, for as long as it lives.
template <class T>
class Borrowed {
public:
    explicit Borrowed(const Programs<T>& held) : held_(held) {
        for (HeldProgram<T>* const one : held_) turns_.push_back(one->taken());
        lists.reserve(held_.size());
        for (HeldProgram<T>* const one : held_) lists.push_back(std::move(one->list));
    }
    Borrowed(const Borrowed&) = delete;
    Borrowed& operator=(const Borrowed&) = delete;
    ~Borrowed() {
        for (std::size_t i = 0; i < held_.size(); ++i) held_[i]->list = std::move(lists[i]);
    }

    std::vector<pbamplix::cpu::program<T>> lists;

private:
    Programs<T> held_;
    std::vector<std::unique_lock<std::mutex>> turns_;
};

// What ends a batch, on whatever thread it comes up: Python, which only the calling thread hears, or a state that
// cannot be asked.
class Ending {
public:
    // Passes through the library.
    struct Ended {};

    Ending(Watch& watch, unsigned long runs) : watch_(watch), runs_(runs) {}

    bool goes_on(unsigned long done, unsigned long) {
        if (!ended_ && watch_.is_needed() && std::this_thread::get_id() == caller_ && !watch_.goes_on(done, runs_)) {
            ended_ = true;
        }
        return !ended_;
    }
    // In the course of what a state is asked.
    void listen() {
        if (!goes_on(finished, runs_)) throw Ended();
    }
    [[noreturn]] void refuse(unsigned long run, const std::string& why) {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (why_.empty() || run < refused_) {
            refused_ = run;
            why_ = why;
        }
        ended_ = true;
        throw Ended();
    }
    // The run that could not be asked and why, or None.
    py::object refusal() const { return why_.empty() ? py::object(py::none()) : py::make_tuple(refused_, why_); }

    std::atomic<unsigned long> finished = 0;  // runs

private:
    Watch& watch_;
    unsigned long runs_;
    std::thread::id caller_ = std::this_thread::get_id();
    std::atomic<bool> ended_ = false;
    std::mutex mutex_;
    unsigned long refused_ = 0;
    std::string why_;
};

// What the state of every run is asked. A list with one entry for every run may have a single one, for all of them.
template <class T>
struct Questions {
    std::vector<unsigned int> seeds;       // of every run's engine, before the shots
    std::vector<Qubits> qubits;            // to draw
    unsigned long shots;                   // of every run
    unsigned long* outcomes;               // those of the first run, then those of the second
    std::vector<Observables> observables;  // as many for every run
    std::complex<double>* values;          // like the outcomes
    std::vector<State<T>*> states;         // that each becomes, with its engine if there are shots; or none

    void check(unsigned long runs, unsigned int nqubits) const {
        const auto for_all = [runs](const auto& list) { return list.size() == 1 || list.size() == runs; };
        if ((shots != 0 && (seeds.size() != runs || !for_all(qubits))) || !for_all(observables) ||
            (!states.empty() && states.size() != runs)) {
            throw std::invalid_argument("the lists of a batch differ in length");
        }
        for (const Qubits& listed : qubits) {
            if (std::any_of(listed.begin(), listed.end(), [=](unsigned int q) { return q >= nqubits; })) {
                throw std::invalid_argument("a batch draws qubits that its states lack");
            }
        }
        const unsigned long size = 1ul << nqubits;
        for (const Observables& listed : observables) {
            if (listed.size() != observables[0].size()) {
                throw std::invalid_argument("the runs of a batch have different numbers of observables");
            }
            for (const auto* const observable : listed) {
                for (std::size_t term = 0; term < observable->flip_masks.size(); ++term) {
                    if ((observable->flip_masks[term] | observable->phase_masks[term]) >= size) {
                        throw std::invalid_argument("a batch has observables on qubits that its states lack");
                    }
                }
            }
        }
        for (const State<T>* const state : states) {
            if (state->nqubits != nqubits) throw std::invalid_argument("the states of a batch differ in size");
        }
    }

    void ask(unsigned long run, State<T>& state, Ending& ending) const {
        if (shots != 0) draw(run, state, ending);
        const Observables& listed = observables[observables.size() == 1 ? 0 : run];
        std::complex<double>* value = values + run * listed.size();
        for (const auto* const observable : listed) {
            thrust::complex<double> sum(0, 0);
            for (const auto& term :
                 pbamplix::cpu::term_values(state.amplitudes.get(), *observable, state.size, state.num_threads,
                                            [&](unsigned long, unsigned long) { ending.listen(); })) {
                sum += term;
            }
            *value++ = sum + observable->constant;
        }
        if (states.empty()) return;
        State<T>& kept = *states[run];
        const auto* const from = reinterpret_cast<const T*>(state.amplitudes.get());
        std::copy_n(from, 2 * state.size, reinterpret_cast<T*>(kept.amplitudes.get()));
        if (shots != 0) {
            kept.seed = state.seed;
            kept.rng = state.rng;
        }
    }

private:
    // Piece by piece, between which the end is heard.
    void draw(unsigned long run, State<T>& state, Ending& ending) const {
        state.seed = seeds[run];
        state.rng.seed(state.seed);
        const unsigned long piece = std::clamp(state.size / 4, 1ul << 18, 1ul << 24);
        const Qubits& listed = qubits[qubits.size() == 1 ? 0 : run];
        if (listed.empty()) return;  // the members take it for all
        for (unsigned long first = 0; first < shots; first += piece) {
            if (first != 0) ending.listen();
            try {
                pbamplix::cpu::pick_shots_of_any_norm(drawn_from(state), outcomes + run * shots + first, state.rng,
                                                      std::min(piece, shots - first), state.num_threads, listed);
            } catch (const std::domain_error& error) {
                ending.refuse(run, error.what());
            }
        }
    }
};

template <class Held>
void require_all(const std::vector<Held*>& held) {
    if (std::find(held.begin(), held.end(), nullptr) != held.end()) {
        throw std::invalid_argument("a batch has None among its objects");
    }
}

// Runs every program, or one program with every row of angles for the gates listed. Returns how many runs are done, the
// exception that ended them or None, and the run that could not be asked with the reason or None.
template <class T>
py::tuple run_batch(const Programs<T>& programs, const std::vector<unsigned long>& gates,
                    const std::optional<py::array_t<double, py::array::c_style>>& angles, int threads,
                    HeldState<T>* initial, const std::vector<unsigned int>& seeds, const std::vector<Qubits>& qubits,
                    py::array_t<unsigned long, py::array::c_style> outcomes,
                    const std::vector<Observables>& observables,
                    py::array_t<std::complex<double>, py::array::c_style> values, const States<T>& states,
                    py::object function, double interval, bool signals) {
    require_all(programs);
    require_all(states);
    for (const Observables& listed : observables) require_all(listed);
    const auto rows = [](const auto& array) { return static_cast<unsigned long>(array.shape(0)); };
    const auto columns = [](const auto& array) { return static_cast<unsigned long>(array.shape(1)); };
    const bool is_of_angles = angles.has_value();
    if (outcomes.ndim() != 2 || values.ndim() != 2 || (is_of_angles && (angles->ndim() != 2 || programs.size() != 1))) {
        throw std::invalid_argument("the arrays of a batch have two dimensions, and angles belong to one program");
    }
    const unsigned long runs = is_of_angles ? rows(*angles) : programs.size();
    std::vector<std::vector<double>> sets;
    for (unsigned long run = 0; is_of_angles && run < runs; ++run) {
        const double* const row = angles->data() + run * columns(*angles);
        sets.emplace_back(row, row + columns(*angles));
    }
    const PinnedToFill<unsigned long> to_outcomes(outcomes);
    const PinnedToFill<std::complex<double>> to_values(values);
    if (rows(outcomes) != runs || rows(values) != runs || observables.empty() ||
        columns(values) != observables[0].size()) {
        throw std::invalid_argument("the arrays of a batch do not fit its runs");
    }
    Watch watch(std::move(function), interval, signals);
    Ending ending(watch, runs);
    Questions<T> questions{seeds, qubits, columns(outcomes), to_outcomes.target(), observables, to_values.target(), {}};
    {
        Borrowed<T> borrowed(programs);
        const Unlocked unlocked;
        std::vector<std::unique_lock<Turn>> turns;
        const auto hold = [&turns](HeldState<T>* held) {
            auto [state, turn] = held->hold();
            turns.push_back(std::move(turn));
            return state;
        };
        pbamplix::cpu::batch_settings<T> settings{threads, initial == nullptr ? nullptr : hold(initial), {}};
        if (watch.is_needed()) {
            settings.hook = [&ending](unsigned long done, unsigned long total) { return ending.goes_on(done, total); };
        }
        for (HeldState<T>* const held : states) questions.states.push_back(hold(held));
        if (runs != 0) {
            questions.check(runs,
                            settings.initial != nullptr ? settings.initial->nqubits : borrowed.lists[0].nqubits());
        }
        const auto result = [&](unsigned long run, State<T>& state) {
            questions.ask(run, state, ending);
            ++ending.finished;
        };
        try {
            is_of_angles ? pbamplix::cpu::run_batch<T>(borrowed.lists.at(0), gates, sets, result, settings)
                         : pbamplix::cpu::run_batch<T>(borrowed.lists, result, settings);
        } catch (const Ending::Ended&) {
        }
    }
    return py::make_tuple(ending.finished.load(), watch.error(), ending.refusal());
}

template <class T>
void bind_one_precision(py::module_& module) {
    module.def("run_batch", &run_batch<T>, py::arg("programs"), py::arg("gates"), py::arg("angles").noconvert(),
               py::arg("threads"), py::arg("initial").none(true), py::arg("seeds"), py::arg("qubits"),
               py::arg("outcomes").noconvert(), py::arg("observables"), py::arg("values").noconvert(),
               py::arg("states"), py::arg("function") = py::none(), py::arg("interval") = 0.05,
               py::arg("signals") = false);
}

}  // namespace

void bind_batch(py::module_& module) {
    bind_one_precision<float>(module);
    bind_one_precision<double>(module);
}

}  // namespace velacamplix::python
