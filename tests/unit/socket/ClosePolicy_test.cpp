#include "support/Calls.h"
#include "support/Test.h"
#include "support/ZmqHandle.h"

#include <zmq.h>

#include <cerrno>
#include <limits>
#include <stdexcept>
#include <type_traits>
#include <utility>

namespace rk::tests {

namespace {

static_assert(std::is_enum_v<ClosePolicy::ClosePolicy>);
static_assert(std::is_convertible_v<ClosePolicy::ClosePolicy, int>, "a plain enumeration");

/// The number of a policy, and its linger time in milliseconds.
class ClosePolicyOf : public testing::TestWithParam<std::pair<int, int>> {};

INSTANTIATE_TEST_SUITE_P(Number, ClosePolicyOf,
                         testing::Values(std::pair(0, 0), std::pair(1, 2000), std::pair(2, -1), std::pair(3, -1),
                                         std::pair(-1, -1), std::pair(std::numeric_limits<int>::max(), -1),
                                         std::pair(std::numeric_limits<int>::min(), -1)));

} // namespace

TEST_P(ClosePolicyOf, SetsTheLingerTime) {
    StandIn standIn;
    ZmqContext context;
    for (const auto pattern : everyPattern) {
        Socket socket("cmd", static_cast<ClosePolicy::ClosePolicy>(GetParam().first));
        void* const handle = context.handleOf(Protocol::ToNativeProtocol(pattern));
        const int other = 12345; // differs from ZeroMQ's default and from every policy
        zmq_setsockopt(handle, ZMQ_LINGER, &other, sizeof other);
        standIn.answer("zmq_socket", handle);
        socket.createAndConnect(pattern, freshEndpoint(Transport::Ipc), 0);

        EXPECT_EQ(pattern == Protocol::Sub ? 0 : GetParam().second, optionOf(handle, ZMQ_LINGER));
    }
}

TEST(ClosePolicy, IsChangedOnlyBySubscribers) {
    for (const bool fails : {true, false}) {
        StandIn standIn;
        Socket socket("cmd", ClosePolicy::LingerTwoSeconds);
        const auto lingerOf = [&](Protocol::Protocol pattern) {
            standIn.journal().clear();
            socket.createAndConnect(pattern, freshEndpoint(Transport::Ipc), 0);
            return standIn.journal().linesWith("zmq_setsockopt");
        };
        EXPECT_THAT(lingerOf(Protocol::Req), ElementsAre(calls::set(ZMQ_LINGER, 2000)));
        socket.create(Protocol::Sub);
        socket.close();
        EXPECT_THAT(lingerOf(Protocol::Pub), ElementsAre(calls::set(ZMQ_LINGER, 2000), calls::set(ZMQ_LINGER, 2000)));
        if (fails) {
            standIn.fail("zmq_connect", ENOMEM);
            EXPECT_THROW(lingerOf(Protocol::Sub), std::runtime_error);
        } else {
            lingerOf(Protocol::Sub);
        }
        EXPECT_THAT(lingerOf(Protocol::Req), ElementsAre(calls::set(ZMQ_LINGER, 0)));
        EXPECT_THAT(lingerOf(Protocol::Pub), ElementsAre(calls::set(ZMQ_LINGER, 0), calls::set(ZMQ_LINGER, 0)));
    }
}

} // namespace rk::tests
