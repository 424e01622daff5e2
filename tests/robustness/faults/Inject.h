#pragma once

namespace rk::tests {

/// Opens what the injected calls need, before the library is used.
void prepareInjection();

/// How often the library has begun to receive.
unsigned int receivesBegun();

} // namespace rk::tests
