#include "statevector/storage/parallel.hpp"

namespace pbamplix {

int get_num_threads(int requested) { return requested < 0 ? 1 : requested; }

}  // namespace pbamplix
