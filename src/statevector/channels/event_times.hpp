#pragma once

#include <optional>
#include <vector>

namespace velacamplix::channels {

// Places 0 ... size - 1 in a row, at each of which something happens with a probability of its own, whatever happens at
// others. Asked from one event to the next, so that places where nothing happens take no time.
class event_times {
public:
    explicit event_times(const std::vector<double>& probabilities);

    unsigned long size() const { return hazard.size(); }

    // The first place from `from` on at which something happens, for one number in [0, 1) of equal chances; size() if
    // it is none.
    unsigned long next(unsigned long from, double number) const;

private:
    // What `next` finds, without a logarithm; nothing where rounding could decide.
    std::optional<unsigned long> quickly_found(unsigned long from, double number) const;

    // Minus the logarithm of the chance that nothing happens up to a place, this one included. Certain events count
    // nothing: they are in a list of their own.
    std::vector<double> hazard;
    std::vector<unsigned long> certain;
    std::vector<double> left;  // exp(-hazard), unless that becomes too small
    double never;              // what a number must be below for nothing to happen at all
};

}  // namespace velacamplix::channels
