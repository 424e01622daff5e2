#pragma once

#include <sched.h>
#include <thread>

namespace rk::benchmarks {

/// Keeps the calling thread, and those that it makes from now on, on one of the machine's cores.
inline void pinToCore(unsigned int core) {
    cpu_set_t cores;
    CPU_ZERO(&cores);
    CPU_SET(core % std::thread::hardware_concurrency(), &cores);
    ::sched_setaffinity(0, sizeof cores, &cores);
}

} // namespace rk::benchmarks
