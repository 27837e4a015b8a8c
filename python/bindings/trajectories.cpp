#include "bindings.hpp"
#include "held_program.hpp"
#include "held_state.hpp"
#include "watch.hpp"

#include <velacamplix/trajectories.hpp>

#include <algorithm>
#include <memory>
#include <optional>
#include <string>
#include <tuple>
#include <variant>
#include <vector>

namespace velacamplix::python {

namespace {

using Qubits = std::vector<unsigned int>;
using Words = py::array_t<unsigned long, py::array::c_style>;

// Letters, or the entries of a matrix row by row.
using Operator = std::variant<std::string, std::vector<std::complex<double>>>;
// Operators, their shares, the usual one, and whether it is a mixture.
using Channel = std::tuple<std::vector<Operator>, std::vector<double>, unsigned int, bool>;
// The first gate that has not acted, whether that is the usual operator, the channel, and its qubits.
using Site = std::tuple<unsigned long, bool, unsigned long, Qubits>;

// What a program with channels is as Python holds it. One run at a time, as for a program.
template <class T>
struct HeldTrajectories {
    HeldTrajectories(HeldProgram<T>& program, const std::vector<Channel>& channels, const std::vector<Site>& sites)
        : made(program.list, read(channels), read(sites)) {}

    pbamplix::cpu::trajectories<T> made;
    std::mutex mutex;

    std::unique_lock<std::mutex> taken() {
        std::unique_lock<std::mutex> turn(mutex, std::try_to_lock);
        if (!turn.owns_lock()) throw std::runtime_error("these trajectories are being made already");
        return turn;
    }

private:
    static std::vector<pbamplix::cpu::noise_channel> read(const std::vector<Channel>& channels) {
        std::vector<pbamplix::cpu::noise_channel> found;
        for (const auto& [operators, shares, usual, is_mixture] : channels) {
            pbamplix::cpu::noise_channel channel{{}, shares, usual, is_mixture};
            for (const Operator& op : operators) {
                auto& to = channel.operators.emplace_back();
                if (const auto* const text = std::get_if<std::string>(&op)) {
                    to.paulis = *text;
                } else {
                    const auto& entries = std::get<1>(op);
                    to.matrix.assign(entries.begin(), entries.end());
                }
            }
            found.push_back(std::move(channel));
        }
        return found;
    }

    static std::vector<pbamplix::cpu::noise_site> read(const std::vector<Site>& sites) {
        std::vector<pbamplix::cpu::noise_site> found;
        found.reserve(sites.size());
        for (const auto& [gate, usual_is_gate, channel, qubits] : sites) {
            found.push_back({gate, usual_is_gate, channel, qubits});
        }
        return found;
    }
};

using Values = py::array_t<std::complex<double>, py::array::c_style>;

// Histories, shots and values, of shape (records, observables).
py::tuple arrays_of(const std::vector<pbamplix::cpu::trajectory_record>& records, std::size_t observables) {
    const auto count = static_cast<py::ssize_t>(records.size());
    Words histories(count), shots(count);
    Values values({count, static_cast<py::ssize_t>(observables)});
    auto* to = values.mutable_data();
    for (py::ssize_t i = 0; i < count; ++i) {
        const auto& record = records[static_cast<std::size_t>(i)];
        histories.mutable_data()[i] = record.history;
        shots.mutable_data()[i] = record.shots;
        to = std::copy(record.values.begin(), record.values.end(), to);
    }
    return py::make_tuple(histories, shots, values);
}

// How many different ones there were, and of every observable the mean and its standard error.
py::tuple told(const pbamplix::cpu::trajectory_result& result) {
    Values means(static_cast<py::ssize_t>(result.means.size()));
    std::copy(result.means.begin(), result.means.end(), means.mutable_data());
    return py::make_tuple(
        result.distinct, means,
        py::array_t<double>(static_cast<py::ssize_t>(result.standard_errors.size()), result.standard_errors.data()));
}

// What one run would have told in place of several, by what `arrays_of` gave of them, one behind the other.
py::tuple combined(const Words& histories, const Words& shots, const Values& values) {
    if (histories.ndim() != 1 || shots.ndim() != 1 || values.ndim() != 2 || shots.size() != histories.size() ||
        values.shape(0) != histories.size()) {
        throw std::invalid_argument("there must be a history, a number of shots and a row of values for each record");
    }
    std::vector<pbamplix::cpu::trajectory_record> records;
    records.reserve(static_cast<std::size_t>(histories.size()));
    for (py::ssize_t i = 0; i < histories.size(); ++i) {
        const auto* const row = values.data() + i * values.shape(1);
        records.push_back({histories.data()[i], shots.data()[i], {row, row + values.shape(1)}});
    }
    return told(pbamplix::cpu::combined(std::move(records)));
}

// Returns what `told` does, and with keeps_records what `arrays_of` does. Fills `outcomes` with those of `measured`,
// unless it is None.
template <class T>
py::tuple run(HeldTrajectories<T>& held, unsigned long seed, unsigned long first_shot, unsigned long shots, int threads,
              const std::shared_ptr<HeldState<T>>& initial, std::optional<Words> outcomes, const Qubits& measured,
              const std::vector<WObservable<double>>& observables, bool shares_prefixes, py::object function,
              double interval, bool signals, bool keeps_records) {
    const auto turn = held.taken();
    std::optional<PinnedToFill<unsigned long>> pinned;
    if (outcomes) {
        pinned.emplace(*outcomes);
        if (pinned->size() != shots) throw std::invalid_argument("there must be an outcome for each shot");
    }
    Watch watch(std::move(function), interval, signals);
    const auto result = watch.over([&](const auto& hook) {
        pbamplix::cpu::trajectory_settings settings;
        settings.seed = seed;
        settings.first_shot = first_shot;
        settings.shots = shots;
        settings.nthreads = threads;
        settings.outcomes = pinned ? pinned->target() : nullptr;
        settings.measured = measured;
        settings.observables = observables;
        settings.shares_prefixes = shares_prefixes;
        settings.hook = hook;
        if (initial == nullptr) {
            const Unlocked unlocked;
            return held.made.run(settings);
        }
        return initial->with_state([&](auto& state) { return held.made.run(settings, &state); });
    });
    return keeps_records ? arrays_of(result.records, observables.size()) : told(result);
}

template <class T>
typename pbamplix::cpu::program<T>::progress_hook asked(const pbamplix::work_hook& hook) {
    if (!hook) return {};
    return [&](unsigned long done, unsigned long total) {
        hook(done, total);
        return true;
    };
}

void require_as_many(const Words& found, const Words& shots) {
    if (found.size() != shots.size()) throw std::invalid_argument("there must be a place for each shot");
}

// Takes a state through the trajectory of one shot. What ends it is raised; the state is of no worth then.
template <class T>
void apply(HeldTrajectories<T>& held, HeldState<T>& state, unsigned long seed, unsigned long shot,
           std::uint32_t first_stream, py::object function, double interval, bool signals, unsigned long first_site) {
    const auto turn = held.taken();
    Watch watch(std::move(function), interval, signals);
    watch.over([&](const auto& hook) {
        return state.to_change(
            [&](auto& there) { return held.made.apply(there, seed, shot, first_stream, asked<T>(hook), first_site); });
    });
}

// Takes a state without events from in front of one site to in front of another, or to the end. As for apply.
template <class T>
void walk(HeldTrajectories<T>& held, HeldState<T>& state, unsigned long first, unsigned long last, py::object function,
          double interval, bool signals) {
    const auto turn = held.taken();
    Watch watch(std::move(function), interval, signals);
    watch.over([&](const auto& hook) {
        return state.to_change([&](auto& there) { return held.made.walk(there, first, last, asked<T>(hook)); });
    });
}

// Fills `found` with the site of each shot's first event, or the number of sites.
template <class T>
void first_events(const HeldTrajectories<T>& held, Words found, unsigned long seed, const Words& shots,
                  std::uint32_t first_stream) {
    require_as_many(found, shots);
    const PinnedToFill pinned(found);
    held.made.first_events(seed, Pinned(shots).data(), pinned.size(), first_stream, pinned.target());
}

template <class T>
void sample_keyed(HeldState<T>& held, Words outcomes, unsigned long seed, const Words& shots,
                  std::uint32_t first_stream, const Qubits& qubits) {
    require_as_many(outcomes, shots);
    const PinnedToFill pinned(outcomes);
    const Pinned numbers(shots);
    held.with_state([&](auto& state) {
        bits_within(state, qubits);
        pbamplix::cpu::sample_keyed(state, pinned.target(), numbers.data(), pinned.size(), seed, first_stream, qubits);
    });
}

// Reads bits of the rows wrongly: a pair of probabilities for each, of 1 given 0 and of 0 given 1.
void apply_readout_errors(py::array_t<unsigned long, py::array::c_style> rows,
                          const std::vector<std::pair<double, double>>& pairs, unsigned long seed,
                          unsigned long first_shot, int threads) {
    if (rows.ndim() != 2 || static_cast<std::size_t>(rows.shape(1)) * 64 < pairs.size()) {
        throw std::invalid_argument("rows must have a bit for each pair of probabilities");
    }
    const auto shots = static_cast<unsigned long>(rows.shape(0)), words = static_cast<unsigned long>(rows.shape(1));
    std::vector<pbamplix::cpu::readout_error> errors;
    for (const auto& [one_given_zero, zero_given_one] : pairs) errors.push_back({one_given_zero, zero_given_one});
    const PinnedToFill pinned(rows);
    const Unlocked unlocked;
    pbamplix::cpu::apply_readout_errors(pinned.target(), shots, words, errors, seed, first_shot, threads);
}

void shot_words(Words out, unsigned long seed, const Words& shots, std::uint32_t index, std::uint32_t stream) {
    require_as_many(out, shots);
    const PinnedToFill pinned(out);
    pbamplix::cpu::shot_words(seed, Pinned(shots).data(), pinned.size(), index, stream, pinned.target());
}

template <class T>
void bind_one_precision(py::module_& module, const char* name) {
    const auto function = py::arg("function") = py::none();
    const auto interval = py::arg("interval") = 0.05;
    const auto signals = py::arg("signals") = false;
    py::class_<HeldTrajectories<T>>(module, name)
        .def(py::init<HeldProgram<T>&, const std::vector<Channel>&, const std::vector<Site>&>(), py::arg("program"),
             py::arg("channels"), py::arg("sites"))
        .def("__len__", [](const HeldTrajectories<T>& held) { return held.made.size(); })
        .def("events_per_shot", [](const HeldTrajectories<T>& held) { return held.made.events_per_shot(); })
        .def("run", &run<T>, py::arg("seed"), py::arg("first_shot"), py::arg("shots"), py::arg("threads"),
             py::arg("initial").none(true), py::arg("outcomes").noconvert(), py::arg("measured"),
             py::arg("observables"), py::arg("shares_prefixes"), function, interval, signals,
             py::arg("keeps_records") = false)
        .def("apply", &apply<T>, py::arg("state"), py::arg("seed"), py::arg("shot"), py::arg("first_stream"), function,
             interval, signals, py::arg("first_site") = 0)
        .def("walk", &walk<T>, py::arg("state"), py::arg("first"), py::arg("last"), function, interval, signals)
        .def("sites", [](const HeldTrajectories<T>& held) { return held.made.sites(); })
        .def("first_events", &first_events<T>, py::arg("found").noconvert(), py::arg("seed"),
             py::arg("shots").noconvert(), py::arg("first_stream"));
    module.def("sample_keyed", &sample_keyed<T>, py::arg("state"), py::arg("outcomes").noconvert(), py::arg("seed"),
               py::arg("shots").noconvert(), py::arg("first_stream"), py::arg("qubits"));
}

}  // namespace

void bind_trajectories(py::module_& module) {
    bind_one_precision<float>(module, "TrajectoriesSingle");
    bind_one_precision<double>(module, "TrajectoriesDouble");
    module.def("combined_trajectories", &combined, py::arg("histories").noconvert(), py::arg("shots").noconvert(),
               py::arg("values").noconvert());
    module.def("apply_readout_errors", &apply_readout_errors, py::arg("rows").noconvert(), py::arg("errors"),
               py::arg("seed"), py::arg("first_shot"), py::arg("threads"));
    module.def("shot_words", &shot_words, py::arg("out").noconvert(), py::arg("seed"), py::arg("shots").noconvert(),
               py::arg("index"), py::arg("stream"));
}

}  // namespace velacamplix::python
