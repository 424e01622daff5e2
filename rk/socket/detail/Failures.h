#pragma once

#include <cstddef>
#include <string>

namespace google::protobuf {
class Message;
}

// `gnu::cold` and `gnu::noinline` mark failure paths, to keep their code out of the hot path. `header` is the socket's.
namespace rk::socket::detail {

/// Returns the reason of a failed call of ZeroMQ, followed by the socket.
std::string failureText(int error, const std::string& header);

/// Throws what a failed send, receive or poll comes to. Reads the error number of the failed call, so it comes before
/// anything that may change it.
[[noreturn, gnu::cold, gnu::noinline]] void throwTransferFailure(const char* operation, const char* prefix,
                                                                 const std::string& header);

[[noreturn, gnu::cold, gnu::noinline]] void throwTerminated(const char* operation, const std::string& header);

[[noreturn, gnu::cold, gnu::noinline]] void refuseUninitialized(const google::protobuf::Message& message,
                                                                const std::string& header);

[[noreturn, gnu::cold, gnu::noinline]] void refuseOversized(std::size_t size, const std::string& header);

[[noreturn, gnu::cold, gnu::noinline]] void refuseUnparsed(const std::string& header);

} // namespace rk::socket::detail
