#pragma once

namespace rk::tests {

/// Opens the descriptors that the injected calls need. Call it before the library is used.
void prepareInjection();

/// Returns how often the library has begun to receive.
unsigned int receivesBegun();

/// Makes the library's next attempt to start a thread fail.
void failNextThread();

/// Makes every poll of the library time out soon.
void hurryPolls();

/// Returns how often the library has connected.
unsigned int connectsBegun();

/// Returns whether the library has begun to poll since it last connected.
bool hasPolledSinceConnect();

/// Waits until the library begins to receive or to poll, at most 50 ms.
void awaitCall();

} // namespace rk::tests
