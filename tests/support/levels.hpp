#pragma once

#include <string_view>

namespace support {

// Whether this machine can run a library built for the level. Asked feature by feature: Clang 14 does not know the
// levels by name. True for the names of other processors.
inline bool machine_has([[maybe_unused]] std::string_view level) {
#if defined(__x86_64__)
    const bool v3 = __builtin_cpu_supports("avx2") && __builtin_cpu_supports("bmi") && __builtin_cpu_supports("bmi2") &&
                    __builtin_cpu_supports("fma") && __builtin_cpu_supports("popcnt");
    const bool v4 = v3 && __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
                    __builtin_cpu_supports("avx512cd") && __builtin_cpu_supports("avx512dq") &&
                    __builtin_cpu_supports("avx512vl");
    if (level == "x86-64-v3") return v3;
    if (level == "x86-64-v4") return v4;
#endif
    return true;
}

}  // namespace support
