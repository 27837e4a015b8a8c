#include "bindings.hpp"
#include "kept_array.hpp"
#include "turn.hpp"

#include <omp.h>

#include <cstddef>
#include <set>
#include <vector>

// What os.register_at_fork is given. OpenMP keeps its threads waiting for the next region; a child process inherits the
// books but not the threads, and would wait for them at its first region. So they are sent home before a fork, and
// start again when they are needed: half a millisecond. The kept array goes too: two processes would not share it.

namespace velacamplix::python {

namespace {

// The processors that OpenMP binds its threads to; 0 where it leaves them free.
std::size_t bound_processors() {
    if (omp_get_proc_bind() == omp_proc_bind_false) return 0;
    std::set<int> processors;
    for (int place = 0; place < omp_get_num_places(); ++place) {
        std::vector<int> listed(static_cast<std::size_t>(omp_get_place_num_procs(place)));
        omp_get_place_proc_ids(place, listed.data());
        processors.insert(listed.begin(), listed.end());
    }
    return processors.size();
}

}  // namespace

void bind_processes(pybind11::module_& module) {
    // False where the runtime cannot do so, within a parallel region.
    module.def("before_fork", [] {
        kept_array::drop();
        return omp_pause_resource_all(omp_pause_soft) == 0;
    });
    module.def("after_fork_in_child", [] { Turn::begin_generation(); });
    module.def("bound_processors", &bound_processors);
    module.def("kept_bytes", &kept_array::bytes);
    module.def("drop_kept", &kept_array::drop);
}

}  // namespace velacamplix::python
