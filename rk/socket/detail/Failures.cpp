#include <rk/socket/ZmqContextTerminationException.h>
#include <rk/socket/detail/Failures.h>

#include <google/protobuf/message.h>
#include <zmq.h>

#include <climits>
#include <stdexcept>
#include <vector>

namespace rk::socket::detail {

namespace {

std::string missingFields(const google::protobuf::Message& message) {
    std::vector<std::string> fields;
    message.FindInitializationErrors(&fields);
    std::string text;
    for (const std::string& field : fields) {
        text += "[" + field + "]";
    }
    return text;
}

} // namespace

std::string failureText(int error, const std::string& header) {
    return zmq_strerror(error) + (" on " + header);
}

void throwTransferFailure(const char* operation, const char* prefix, const std::string& header) {
    const int error = zmq_errno();
    if (error == ETERM) {
        throwTerminated(operation, header);
    }
    throw std::runtime_error(prefix + failureText(error, header));
}

void throwTerminated(const char* operation, const std::string& header) {
    throw ZmqContextTerminationException(std::string("Context terminated in ") + operation + " for socket " + header);
}

void refuseUninitialized(const google::protobuf::Message& message, const std::string& header) {
    throw std::runtime_error(header + ": Cannot send message: not initialized: " + missingFields(message));
}

void refuseOversized(std::size_t size, const std::string& header) {
    throw std::runtime_error(header + ": Cannot send message: " + std::to_string(size) + " bytes serialized, at most " +
                             std::to_string(INT_MAX) + " possible");
}

void refuseUnparsed(const std::string& header) {
    throw std::runtime_error(header + ": Failed deserializing message");
}

} // namespace rk::socket::detail
