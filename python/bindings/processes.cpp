#include "bindings.hpp"
#include "turn.hpp"

#include <omp.h>

// What os.register_at_fork is given. OpenMP keeps its threads waiting for the next region; a child process inherits the
// books but not the threads, and would wait for them at its first region. So they are sent home before a fork, and
// start again when they are needed: half a millisecond.

namespace velacamplix::python {

void bind_processes(pybind11::module_& module) {
    // False where the runtime cannot do so, within a parallel region.
    module.def("before_fork", [] { return omp_pause_resource_all(omp_pause_soft) == 0; });
    module.def("after_fork_in_child", [] { Turn::begin_generation(); });
}

}  // namespace velacamplix::python
