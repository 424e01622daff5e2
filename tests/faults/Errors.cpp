#include "Errors.h"

#include "Faults.h"

#include <zmq.h>

#include <cerrno>
#include <cstring>
#include <map>
#include <memory>

namespace rk::tests {

const std::vector<int>& errorsOf(std::string_view function) {
    static const std::map<std::string_view, std::vector<int>> errors{
        {"zmq_ctx_new", {EMFILE, ENOMEM}},
        {"zmq_term", {EINTR, EFAULT}},
        {"zmq_ctx_destroy", {EINTR, EFAULT}},
        {"zmq_socket", {EMFILE, EINVAL, EFAULT, ETERM}},
        {"zmq_close", {ENOTSOCK}},
        {"zmq_bind",
         {EADDRINUSE, EINVAL, EPROTONOSUPPORT, ENOCOMPATPROTO, EADDRNOTAVAIL, ENODEV, ETERM, ENOTSOCK, EMTHREAD}},
        {"zmq_connect", {EINVAL, EPROTONOSUPPORT, ENOCOMPATPROTO, ETERM, ENOTSOCK, EMTHREAD}},
        {"zmq_setsockopt", {EINVAL, ETERM, ENOTSOCK, EINTR}},
        {"zmq_send", {EFSM, EAGAIN, ENOTSUP, EINVAL, ETERM, ENOTSOCK, EINTR, EHOSTUNREACH}},
        {"zmq_recv", {EFSM, EAGAIN, ENOTSUP, ETERM, ENOTSOCK, EINTR}},
        {"zmq_poll", {EINTR, ETERM, EFAULT, readyForNothing, readyInError}},
        {"operator new", {ENOMEM}},
        {"pthread_mutex_lock", {EINVAL, EAGAIN, EDEADLK, ENOTRECOVERABLE}},
        {"pthread_create", {EAGAIN, EINVAL, EPERM}},
        {"pthread_join", {EDEADLK, EINVAL, ESRCH}},
        {"eventfd", {EMFILE, ENFILE, ENODEV, ENOMEM}},
        {"chmod", {EPERM, EACCES, EFAULT, EIO, ELOOP, ENAMETOOLONG, ENOENT, ENOMEM, ENOTDIR, EROFS}},
        {"gettimeofday", {EFAULT, EINVAL}},
        {"usleep", {EINTR, EINVAL}},
        {"nanosleep", {EINTR, EFAULT, EINVAL}},
    };
    return errors.at(function);
}

std::string nameOf(int error) {
    // Never destroyed: asked when the process has run its destructors, too.
    static const auto* const names =
        std::make_unique<std::map<int, std::string>>(std::map<int, std::string>{
                                                         {EFSM, "EFSM"},
                                                         {ETERM, "ETERM"},
                                                         {EMTHREAD, "EMTHREAD"},
                                                         {ENOCOMPATPROTO, "ENOCOMPATPROTO"},
                                                         {readyForNothing, "ready, revents 0"},
                                                         {readyInError, "ready, revents ZMQ_POLLERR"},
                                                     })
            .release();
    const auto found = names->find(error);
    return found != names->end() ? found->second : strerrorname_np(error);
}

} // namespace rk::tests
