#include "support/Allocations.h"

#include <rk/socket/Socket.h>

#include <gtest/gtest.h>

#include <new>
#include <stdexcept>
#include <string>

using namespace rk::socket;
using rk::tests::allocationsOf;

namespace {

bool isClosed(Socket& socket) {
    try {
        std::string error;
        socket.poll(0, error);
    } catch (const std::runtime_error& failure) {
        return failure.what() == std::string("Socket: Cannot poll a NULL socket");
    }
    return false;
}

} // namespace

TEST(Shortage, OfMemoryClosesASocketThatIsBeingConnected) {
    if (!rk::tests::seesAllocations()) {
        GTEST_SKIP() << "allocations cannot be made to fail here";
    }
    Socket socket("short", ClosePolicy::DropPending);
    socket.create(Protocol::Req);
    const SocketEndpoint endpoint(Transport::Inproc, "a name that is longer than a short text", 0);
    bool refused = false;
    allocationsOf(
        [&] {
            try {
                socket.connect(endpoint, 0);
            } catch (const std::bad_alloc&) {
                refused = true;
            }
        },
        1);
    EXPECT_TRUE(refused);
    EXPECT_TRUE(isClosed(socket));
}
