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

/// Waits until it begins to receive or to connect, for 50 ms at most.
void awaitCall();

} // namespace rk::tests
