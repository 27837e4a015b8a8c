#include "statevector/channels/event_times.hpp"

#include <algorithm>
#include <cmath>

namespace velacamplix::channels {

namespace {

// More than rounding makes of an exponential here.
constexpr double margin = 1e-12;

}  // namespace

event_times::event_times(const std::vector<double>& probabilities) {
    double sum = 0;
    for (unsigned long place = 0; place < probabilities.size(); ++place) {
        if (probabilities[place] >= 1) {
            certain.push_back(place);
        } else if (probabilities[place] > 0) {
            sum -= std::log1p(-probabilities[place]);
        }
        hazard.push_back(sum);
    }
    never = std::exp(-sum) * (1 - margin);
    if (sum > 600) return;  // what is left of 1 is near the smallest numbers
    for (const double passed : hazard) left.push_back(std::exp(-passed));
}

unsigned long event_times::next(unsigned long from, double number) const {
    const auto sure = std::lower_bound(certain.begin(), certain.end(), from);
    const unsigned long latest = sure == certain.end() ? size() : *sure;
    // Of all shots with no event at all, which are most of them where noise is weak, nothing more is asked.
    if (number < never) return latest;
    if (const auto found = quickly_found(from, number)) return std::min(latest, *found);
    // The logarithm of a number in (0, 1] is exponentially distributed: what of the hazard passes until an event.
    const double passed = (from == 0 ? 0 : hazard[from - 1]) - std::log(number);
    const auto found = std::upper_bound(hazard.begin() + static_cast<long>(from), hazard.end(), passed);
    return std::min(latest, static_cast<unsigned long>(found - hazard.begin()));
}

std::optional<unsigned long> event_times::quickly_found(unsigned long from, double number) const {
    if (left.empty()) return std::nullopt;
    const double until = from == 0 ? number : number * left[from - 1];
    // The first place with less left. No branch to mispredict.
    const double* found = left.data() + from;
    for (unsigned long count = size() - from; count != 0;) {
        const unsigned long half = (count + 1) / 2;
        found += found[half - 1] >= until ? half : 0;
        count -= half;
    }
    const auto place = static_cast<unsigned long>(found - left.data());
    const bool is_sure_before = place == from || left[place - 1] * (1 - margin) > until;
    const bool is_sure_here = place == size() || left[place] < until * (1 - margin);
    return is_sure_before && is_sure_here ? std::optional(place) : std::nullopt;
}

}  // namespace velacamplix::channels
