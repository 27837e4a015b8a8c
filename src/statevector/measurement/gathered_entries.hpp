#pragma once

#include <algorithm>
#include <map>
#include <utility>
#include <vector>

namespace velacamplix::measurement {

// Entries of a map, found by several threads in any order. Nodes are then made on one thread and by increasing key,
// each beside the last, which needs no search.
template <class V>
class gathered_entries {
    using entry = std::pair<unsigned long, V>;

    static bool earlier(const entry& a, const entry& b) { return a.first < b.first; }

public:
    // What one thread finds; joins the rest when destroyed. A copy starts empty.
    class share {
    public:
        explicit share(gathered_entries& to) : whole(&to) {}
        share(const share& other) : whole(other.whole) {}
        share& operator=(const share&) = delete;
        ~share() {
            if (found.empty()) return;
            std::sort(found.begin(), found.end(), earlier);
#pragma omp critical
            whole->join(found);
        }

        void add(unsigned long key, const V& value) { found.emplace_back(key, value); }

    private:
        gathered_entries* whole;
        std::vector<entry> found;
    };

    // Inserts every entry; a key that the map holds already gets the new value.
    void insert_into(std::map<unsigned long, V>& map) const {
        auto place = map.begin();
        for (const auto& [key, value] : entries) place = std::next(map.insert_or_assign(place, key, value));
    }

private:
    void join(std::vector<entry>& found) {
        if (entries.empty()) {
            entries.swap(found);
            return;
        }
        const auto middle = static_cast<std::ptrdiff_t>(entries.size());
        entries.insert(entries.end(), found.begin(), found.end());
        std::inplace_merge(entries.begin(), entries.begin() + middle, entries.end(), earlier);
    }

    std::vector<entry> entries;  // by increasing key
};

}  // namespace velacamplix::measurement
