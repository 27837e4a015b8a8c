#pragma once

#include <algorithm>
#include <map>
#include <new>
#include <utility>
#include <vector>

namespace velacamplix::measurement {

// Entries of a map, found by several threads in any order. Nodes are then made on one thread and by increasing key,
// each beside the last, which needs no search. Where memory runs out, std::bad_alloc: in `add`, or at the end.
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
        if (is_incomplete) throw std::bad_alloc();
        auto place = map.begin();
        for (const auto& [key, value] : entries) place = std::next(map.insert_or_assign(place, key, value));
    }

private:
    // Called by destructors, which must not throw.
    void join(std::vector<entry>& found) noexcept {
        if (entries.empty()) {
            entries.swap(found);
            return;
        }
        const auto middle = static_cast<std::ptrdiff_t>(entries.size());
        try {
            entries.insert(entries.end(), found.begin(), found.end());
        } catch (const std::bad_alloc&) {
            is_incomplete = true;
            return;
        }
        std::inplace_merge(entries.begin(), entries.begin() + middle, entries.end(), earlier);
    }

    std::vector<entry> entries;  // by increasing key
    bool is_incomplete = false;
};

}  // namespace velacamplix::measurement
