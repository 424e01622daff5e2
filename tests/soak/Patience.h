#pragma once

#include <chrono>

namespace rk::tests::soak {

/// After this long, what has not come is lost: far longer than a busy machine takes.
constexpr std::chrono::seconds patience{60};

} // namespace rk::tests::soak
