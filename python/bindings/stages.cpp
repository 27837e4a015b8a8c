#include "bindings.hpp"
#include "held_program.hpp"
#include "held_state.hpp"
#include "watch.hpp"

#include <velacamplix/part_shots.hpp>
#include <velacamplix/stages.hpp>

#include <algorithm>
#include <bit>
#include <cstdint>
#include <memory>
#include <mutex>
#include <random>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace velacamplix::python {

namespace {

using Qubits = std::vector<unsigned int>;
template <class T>
using Amplitudes = py::array_t<std::complex<T>, py::array::c_style>;

// What the core asks of the addresses of a part, where NumPy would be content with less.
template <class T>
const thrust::complex<T>* at_even_addresses(const std::complex<T>* part) {
    if (reinterpret_cast<std::uintptr_t>(part) % alignof(thrust::complex<T>) != 0) {
        throw std::invalid_argument("a part must begin at a multiple of " +
                                    std::to_string(alignof(thrust::complex<T>)) + " bytes");
    }
    return reinterpret_cast<const thrust::complex<T>*>(part);
}

// A plan as Python holds it. One stage at a time, as for a program.
template <class T>
struct HeldStages {
    explicit HeldStages(pbamplix::cpu::stage_plan<T>&& plan) : made(std::move(plan)) {}

    pbamplix::cpu::stage_plan<T> made;
    std::mutex mutex;

    std::unique_lock<std::mutex> taken() {
        std::unique_lock<std::mutex> turn(mutex, std::try_to_lock);
        if (!turn.owns_lock()) throw std::runtime_error("a stage of this plan is running already");
        return turn;
    }
};

template <class T>
std::unique_ptr<HeldStages<T>> plan_stages(HeldProgram<T>& program, unsigned int n, unsigned int rank_bits,
                                           bool from_zeros, bool back_in_order) {
    const auto turn = program.taken();
    const Unlocked unlocked;
    return std::make_unique<HeldStages<T>>(
        pbamplix::cpu::stage_plan<T>(program.list, n, rank_bits, {from_zeros, back_in_order}));
}

template <class T>
Amplitudes<T> coefficients(const HeldStages<T>& held) {
    const auto numbers = held.made.coefficients();
    Amplitudes<T> told(static_cast<py::ssize_t>(numbers.size()));
    std::copy(numbers.begin(), numbers.end(), told.mutable_data());
    return told;
}

template <class T>
void set_coefficients(HeldStages<T>& held, const Amplitudes<T>& numbers) {
    const auto turn = held.taken();
    held.made.set_coefficients({numbers.data(), numbers.data() + numbers.size()});
}

// Partner, first amplitude and number of amplitudes of each.
template <class T>
py::list transfers(const HeldStages<T>& held, unsigned long stage, unsigned long rank) {
    py::list told;
    for (const auto& one : held.made.transfers(stage, rank)) {
        told.append(py::make_tuple(one.partner, one.first, one.count));
    }
    return told;
}

// What ends it is raised; the part is of no worth then.
template <class T>
void run_stage(HeldStages<T>& held, unsigned long stage, unsigned long rank, Amplitudes<T> part, int threads,
               py::object function, double interval, bool signals) {
    const auto turn = held.taken();
    const PinnedToFill<std::complex<T>> pinned(part);
    if (pinned.size() != 1ul << held.made.part_qubits()) {
        throw std::invalid_argument("a part has " + std::to_string(1ul << held.made.part_qubits()) +
                                    " amplitudes, got " + std::to_string(pinned.size()));
    }
    auto* const amplitudes = const_cast<thrust::complex<T>*>(at_even_addresses(pinned.target()));
    Watch watch(std::move(function), interval, signals);
    watch.over([&](const auto& hook) {
        const Unlocked unlocked;
        held.made.run_stage(stage, rank, amplitudes, threads, hook);
    });
}

// Of every qubit its place, and the bits of a rank's number that are read flipped.
template <class T>
py::tuple places(const HeldStages<T>& held) {
    const auto& told = held.made.places();
    return py::make_tuple(py::tuple(py::cast(told.places)), told.flipped);
}

// Shots of a state in parts, with the part, which stays where it is for as long as it lives.
template <class T>
struct HeldPartShots {
    HeldPartShots(Amplitudes<T> part, unsigned int n, unsigned long number, int threads)
        : amplitudes(std::move(part)), pinned(amplitudes), sums(read(pinned, n, number, threads)) {}

    Amplitudes<T> amplitudes;
    Pinned<std::complex<T>> pinned;
    pbamplix::cpu::part_shots<T> sums;
    std::mutex mutex;

    std::unique_lock<std::mutex> taken() {
        std::unique_lock<std::mutex> turn(mutex, std::try_to_lock);
        if (!turn.owns_lock()) throw std::runtime_error("these shots are being drawn already");
        return turn;
    }

private:
    static pbamplix::cpu::part_shots<T> read(const Pinned<std::complex<T>>& part, unsigned int n, unsigned long number,
                                             int threads) {
        if (!std::has_single_bit(part.size())) throw std::invalid_argument("a part has 2^k amplitudes");
        const auto* const from = at_even_addresses(part.data());
        const auto part_qubits = static_cast<unsigned int>(std::countr_zero(part.size()));
        const Unlocked unlocked;
        return {from, part_qubits, n, number, threads};
    }
};

template <class T>
void foresee(HeldPartShots<T>& held, double before) {
    const auto turn = held.taken();
    const Unlocked unlocked;
    held.sums.foresee(before);
}

template <class T>
double run(HeldPartShots<T>& held, double before) {
    const auto turn = held.taken();
    const Unlocked unlocked;
    return held.sums.run(before);
}

// Fills `shots`. Takes the numbers of an engine, as `engine` tells them of a state, and returns those it has then.
template <class T>
std::string write(HeldPartShots<T>& held, double total, const std::string& engine,
                  py::array_t<unsigned long, py::array::c_style> shots, const Qubits& qubits) {
    const auto turn = held.taken();
    std::istringstream text(engine);
    unsigned int seed = 0;
    std::mt19937_64 rng;
    if (!(text >> seed >> rng)) throw std::invalid_argument("this is not the state of a random engine");
    const PinnedToFill<unsigned long> pinned(shots);
    {
        const Unlocked unlocked;
        held.sums.write(total, rng, pinned.target(), pinned.size(), qubits);
    }
    std::ostringstream after;
    after << seed << ' ' << rng;
    return after.str();
}

template <class T>
void bind_one_precision(py::module_& module, const char* plan, const char* shots) {
    using Plan = HeldStages<T>;
    using Shots = HeldPartShots<T>;
    py::class_<Plan>(module, plan)
        .def(py::init(&plan_stages<T>), py::arg("program"), py::arg("n"), py::arg("rank_bits"),
             py::arg("from_zeros") = true, py::arg("back_in_order") = true)
        .def("__len__", [](const Plan& held) { return held.made.size(); })
        .def("part_qubits", [](const Plan& held) { return held.made.part_qubits(); })
        .def("parts_sent", [](const Plan& held) { return held.made.parts_sent(); })
        .def("coefficients", &coefficients<T>)
        .def("set_coefficients", &set_coefficients<T>, py::arg("numbers").noconvert())
        .def("transfers", &transfers<T>, py::arg("stage"), py::arg("rank"))
        .def("run_stage", &run_stage<T>, py::arg("stage"), py::arg("rank"), py::arg("part").noconvert(),
             py::arg("threads"), py::arg("function") = py::none(), py::arg("interval") = 0.05,
             py::arg("signals") = false)
        .def("places", &places<T>)
        .def(
            "part_of", [](const Plan& held, unsigned long rank) { return held.made.part_of(rank); }, py::arg("rank"));
    py::class_<Shots>(module, shots)
        .def(py::init<Amplitudes<T>, unsigned int, unsigned long, int>(), py::arg("part").noconvert(), py::arg("n"),
             py::arg("number"), py::arg("threads"))
        .def("estimate", [](const Shots& held) { return held.sums.estimate(); })
        .def("foresee", &foresee<T>, py::arg("before"))
        .def("run", &run<T>, py::arg("before"))
        .def("write", &write<T>, py::arg("total"), py::arg("engine"), py::arg("shots").noconvert(), py::arg("qubits"));
}

}  // namespace

void bind_stages(py::module_& module) {
    bind_one_precision<float>(module, "StagePlanSingle", "PartShotsSingle");
    bind_one_precision<double>(module, "StagePlanDouble", "PartShotsDouble");
}

}  // namespace velacamplix::python
