#include "Interpose.h"

using namespace rk::tests;

extern "C" {

void* zmq_ctx_new() {
    static auto* const real = next<decltype(zmq_ctx_new)>("zmq_ctx_new");
    Call call{Function::ZmqCtxNew, __builtin_return_address(0)};
    return reinterpret_cast<void*>(perform(call, Real(real)));
}

int zmq_ctx_set(void* context, int option, int value) {
    static auto* const real = next<decltype(zmq_ctx_set)>("zmq_ctx_set");
    Call call{Function::ZmqCtxSet, __builtin_return_address(0), context, nullptr, option};
    const auto go = [&] { return real(call.object, static_cast<int>(call.number), value); };
    return static_cast<int>(perform(call, Real(go)));
}

int zmq_term(void* context) {
    static auto* const real = next<decltype(zmq_term)>("zmq_term");
    Call call{Function::ZmqTerm, __builtin_return_address(0), context};
    const auto go = [&] { return real(call.object); };
    return static_cast<int>(perform(call, Real(go)));
}

int zmq_ctx_destroy(void* context) {
    static auto* const real = next<decltype(zmq_ctx_destroy)>("zmq_ctx_destroy");
    Call call{Function::ZmqCtxDestroy, __builtin_return_address(0), context};
    const auto go = [&] { return real(call.object); };
    return static_cast<int>(perform(call, Real(go)));
}

void* zmq_socket(void* context, int type) {
    static auto* const real = next<decltype(zmq_socket)>("zmq_socket");
    Call call{Function::ZmqSocket, __builtin_return_address(0), context, nullptr, type};
    const auto go = [&] { return real(call.object, static_cast<int>(call.number)); };
    return reinterpret_cast<void*>(perform(call, Real(go)));
}

int zmq_close(void* socket) {
    static auto* const real = next<decltype(zmq_close)>("zmq_close");
    Call call{Function::ZmqClose, __builtin_return_address(0), socket};
    const auto go = [&] { return real(call.object); };
    return static_cast<int>(perform(call, Real(go)));
}

int zmq_bind(void* socket, const char* address) {
    static auto* const real = next<decltype(zmq_bind)>("zmq_bind");
    Call call{Function::ZmqBind, __builtin_return_address(0), socket, address};
    const auto go = [&] { return real(call.object, call.text); };
    return static_cast<int>(perform(call, Real(go)));
}

int zmq_connect(void* socket, const char* address) {
    static auto* const real = next<decltype(zmq_connect)>("zmq_connect");
    Call call{Function::ZmqConnect, __builtin_return_address(0), socket, address};
    const auto go = [&] { return real(call.object, call.text); };
    return static_cast<int>(perform(call, Real(go)));
}

int zmq_disconnect(void* socket, const char* address) {
    static auto* const real = next<decltype(zmq_disconnect)>("zmq_disconnect");
    Call call{Function::ZmqDisconnect, __builtin_return_address(0), socket, address};
    const auto go = [&] { return real(call.object, call.text); };
    return static_cast<int>(perform(call, Real(go)));
}

int zmq_setsockopt(void* socket, int option, const void* value, size_t length) {
    static auto* const real = next<decltype(zmq_setsockopt)>("zmq_setsockopt");
    Call call{Function::ZmqSetsockopt, __builtin_return_address(0), socket, nullptr, option, value, length};
    const auto go = [&] { return real(call.object, static_cast<int>(call.number), call.data, call.size); };
    return static_cast<int>(perform(call, Real(go)));
}

int zmq_getsockopt(void* socket, int option, void* value, size_t* length) {
    static auto* const real = next<decltype(zmq_getsockopt)>("zmq_getsockopt");
    Call call{Function::ZmqGetsockopt, __builtin_return_address(0), socket, nullptr, option, value};
    const auto go = [&] { return real(call.object, static_cast<int>(call.number), value, length); };
    return static_cast<int>(perform(call, Real(go)));
}

int zmq_send(void* socket, const void* data, size_t size, int flags) {
    static auto* const real = next<decltype(zmq_send)>("zmq_send");
    Call call{Function::ZmqSend, __builtin_return_address(0), socket, nullptr, 0, data, size, flags};
    const auto go = [&] { return real(call.object, call.data, call.size, call.flags); };
    return static_cast<int>(perform(call, Real(go)));
}

int zmq_recv(void* socket, void* buffer, size_t size, int flags) {
    static auto* const real = next<decltype(zmq_recv)>("zmq_recv");
    Call call{Function::ZmqRecv, __builtin_return_address(0), socket, nullptr, 0, buffer, size, flags};
    const auto go = [&] { return real(call.object, buffer, call.size, call.flags); };
    return static_cast<int>(perform(call, Real(go)));
}

int zmq_msg_recv(zmq_msg_t* message, void* socket, int flags) {
    static auto* const real = next<decltype(zmq_msg_recv)>("zmq_msg_recv");
    Call call{Function::ZmqMsgRecv, __builtin_return_address(0), socket};
    call.flags = flags;
    const auto go = [&] { return real(message, call.object, call.flags); };
    return static_cast<int>(perform(call, Real(go)));
}

int zmq_poll(zmq_pollitem_t* items, int count, long timeout) {
    static auto* const real = next<decltype(zmq_poll)>("zmq_poll");
    Call call{Function::ZmqPoll, __builtin_return_address(0)};
    call.items = items;
    call.size = static_cast<std::size_t>(count);
    call.number = timeout;
    const auto go = [&] { return real(call.items, static_cast<int>(call.size), call.number); };
    return static_cast<int>(perform(call, Real(go)));
}

int zmq_curve_keypair(char* publicKey, char* secretKey) {
    static auto* const real = next<decltype(zmq_curve_keypair)>("zmq_curve_keypair");
    Call call{Function::ZmqCurveKeypair, __builtin_return_address(0)};
    const auto go = [&] { return real(publicKey, secretKey); };
    return static_cast<int>(perform(call, Real(go)));
}

int zmq_curve_public(char* publicKey, const char* secretKey) {
    static auto* const real = next<decltype(zmq_curve_public)>("zmq_curve_public");
    Call call{Function::ZmqCurvePublic, __builtin_return_address(0)};
    const auto go = [&] { return real(publicKey, secretKey); };
    return static_cast<int>(perform(call, Real(go)));
}

} // extern "C"
