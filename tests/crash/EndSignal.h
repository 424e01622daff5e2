#pragma once

#include <chrono>

namespace rk::tests::crash {

/// Blocks the signal that asks this process to end, for all its threads; called before the first of them is made.
void blockEndSignal();

/// Whether this process is asked to end within the time.
bool isAskedToEndWithin(std::chrono::milliseconds time);

void waitForEndSignal();

} // namespace rk::tests::crash
