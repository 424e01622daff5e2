#include <rk/detail/Immortal.h>
#include <rk/socket/detail/ContextGate.h>

namespace rk::socket::detail {

namespace {

bool isInproc(const std::string& address) {
    return address.compare(0, 9, "inproc://") == 0;
}

} // namespace

ContextGate& ContextGate::ofProcess() {
    static rk::detail::Immortal<ContextGate> gate;
    return *gate;
}

void ContextGate::shut() {
    const std::lock_guard<std::mutex> lock(mutex);
    isShut = true;
}

int ContextGate::bind(void* socket, const std::string& address) {
    const auto call = [&] { return zmq_bind(socket, address.c_str()) < 0 ? zmq_errno() : 0; };
    return isInproc(address) ? pass(call) : call();
}

int ContextGate::connect(void* socket, const std::string& address) {
    const auto call = [&] { return zmq_connect(socket, address.c_str()) < 0 ? zmq_errno() : 0; };
    return isInproc(address) ? pass(call) : call();
}

} // namespace rk::socket::detail
