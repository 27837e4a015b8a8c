#include <velacamplix/velacamplix.hpp>

#include <cstdio>
#include <vector>

// A host of a few lines: a three-qubit GHZ state, one shot list, one observable.
int main() {
    pbamplix::cpu::PybindAmplixStateVectorCPU<double> state(3);
    state.reset();
    state.rng.seed(7);
    state.apply_H(0);
    state.apply_CNOT(0, 1);
    state.apply_CNOT(1, 2);

    std::vector<unsigned long> shots(1000);
    state.sample(shots.data(), shots.size());
    unsigned long counts[8] = {};
    for (const unsigned long shot : shots) ++counts[shot];

    WObservable<double> zz;
    zz.coefficients = {1.0};
    zz.flip_masks = {0};
    zz.phase_masks = {0b011};
    zz.y_counts = {0};
    zz.nqubits = 3;

    std::printf("loaded %s for %s\n", pbamplix::version(), pbamplix::instruction_set());
    std::printf("p(000) = %.3f  p(111) = %.3f  <ZZ> = %.3f\n", state.probability(0), state.probability(7),
                state.expectation_value(zz).real());
    const bool only_both_ends = counts[0] + counts[7] == shots.size();
    const bool both_seen = counts[0] > 400 && counts[7] > 400;
    std::printf("%s\n", only_both_ends && both_seen ? "every shot reads 000 or 111" : "unexpected shots");
    return only_both_ends && both_seen ? 0 : 1;
}
