#include "statevector/channels/event_times.hpp"

#include <algorithm>
#include <cmath>

namespace velacamplix::channels {

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
    never = std::exp(-sum) * (1 - 1e-12);
}

unsigned long event_times::next(unsigned long from, double number) const {
    const auto sure = std::lower_bound(certain.begin(), certain.end(), from);
    const unsigned long latest = sure == certain.end() ? size() : *sure;
    // Of all shots with no event at all, which are most of them where noise is weak, nothing more is asked.
    if (number < never) return latest;
    // The logarithm of a number in (0, 1] is exponentially distributed: what of the hazard passes until an event.
    const double passed = (from == 0 ? 0 : hazard[from - 1]) - std::log(number);
    const auto found = std::upper_bound(hazard.begin() + static_cast<long>(from), hazard.end(), passed);
    return std::min(latest, static_cast<unsigned long>(found - hazard.begin()));
}

}  // namespace velacamplix::channels
