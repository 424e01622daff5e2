#pragma once

#include <cstddef>
#include <string>

namespace google::protobuf {
class Message;
}

// `gnu::cold` and `gnu::noinline` keep the code of failure paths out of the hot path. `header` names the socket.
namespace rk::socket::detail {

/// Returns the reason of a failed ZeroMQ call, followed by the socket.
std::string failureText(int error, const std::string& header);

/// Throws the exception for a failed send or receive. Call it before anything can change the error number of the
/// failed call.
[[noreturn, gnu::cold, gnu::noinline]] void throwTransferFailure(const char* operation, const char* prefix,
                                                                 const std::string& header);

[[noreturn, gnu::cold, gnu::noinline]] void throwTerminated(const char* operation, const std::string& header);

[[noreturn, gnu::cold, gnu::noinline]] void refuseUninitialized(const google::protobuf::Message& message,
                                                                const std::string& header);

[[noreturn, gnu::cold, gnu::noinline]] void refuseOversized(std::size_t size, const std::string& header);

[[noreturn, gnu::cold, gnu::noinline]] void refuseUnparsed(const std::string& header);

} // namespace rk::socket::detail
