#pragma once

namespace rk::tests {

/// Opens what the injected calls need, before the library is used.
void prepareInjection();

/// How often the library has begun to receive.
unsigned int receivesBegun();

/// Lets the time of every poll of the library run out soon.
void hurryPolls();

/// How often it has connected.
unsigned int connectsBegun();

} // namespace rk::tests
