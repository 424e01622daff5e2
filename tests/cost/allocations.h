#pragma once

namespace rk::cost {

/// How often memory was asked for in this process so far, by whatever means.
unsigned long allocations();

} // namespace rk::cost
