#pragma once

// Everything a C++ host may use.

#include "amplitude.hpp"
#include "batch.hpp"
#include "circuit.hpp"
#include "gradient.hpp"
#include "index.hpp"
#include "inner_products.hpp"
#include "kernels.hpp"
#include "loading.hpp"
#include "measurement.hpp"
#include "observable.hpp"
#include "part_shots.hpp"
#include "part_values.hpp"
#include "program.hpp"
#include "stages.hpp"
#include "statevector.hpp"
#include "storage.hpp"
#include "threads.hpp"
#include "trajectories.hpp"
#include "version.hpp"
#include "work_hook.hpp"
