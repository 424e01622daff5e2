// Constructs and destroys every public class in every allowed way.
#include <rk/socket/PollSet.h>
#include <rk/socket/Socket.h>
#include <rk/socket/SocketContext.h>
#include <rk/socket/SocketEndpoint.h>
#include <rk/socket/TimeoutException.h>
#include <rk/socket/ZmqContextTerminationException.h>
#include <rk/socket/utils/Replier.h>
#include <rk/socket/utils/Requester.h>
#include <rk/socket/utils/SocketListener.h>
#include <rk/socket/utils/Subscriber.h>
#include <rk/utils/IMessageFormatter.h>
#include <rk/utils/MessageFormatter.h>

#include <google/protobuf/wrappers.pb.h>

#include <memory>
#include <string>
#include <utility>

using namespace rk::socket;
using google::protobuf::StringValue;
using rk::socket::utils::Replier;
using rk::socket::utils::Requester;
using rk::socket::utils::SocketListener;
using rk::socket::utils::Subscriber;
using rk::utils::IMessageFormatter;
using rk::utils::MessageFormatter;

namespace {

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor" // GCC's looks at the bases of users' classes, too
template <class Class>
class Derived final : public Class {
public:
    using Class::Class;
};
#pragma GCC diagnostic pop

class OwnHeader final : public IMessageFormatter {
public:
    std::string messageHeader() const override { return "own"; }
};

class Listener final : public SocketListener {
public:
    using SocketListener::SocketListener;
    std::shared_ptr<google::protobuf::Message> createMessage() override { return nullptr; }
    void handleMessage(google::protobuf::Message* /*message*/, std::shared_ptr<Socket> /*socket*/) override {}
};

template <class Class, class... Arguments>
void makeAndDestroy(const Arguments&... arguments) {
    [[maybe_unused]] const Class onStack(arguments...);
    const std::unique_ptr<Class> unique(new Class(arguments...));
    const auto madeUnique = std::make_unique<Class>(arguments...);
    const auto shared = std::make_shared<Class>(arguments...);
    const std::shared_ptr<const Class> ofPointer(new Class(arguments...));
}

template <class Class, class... Arguments>
void makeAndDestroyDerived(const Arguments&... arguments) {
    makeAndDestroy<Class>(arguments...);
    makeAndDestroy<Derived<Class>>(arguments...);
}

} // namespace

int main() {
    makeAndDestroyDerived<MessageFormatter>("name");
    makeAndDestroyDerived<Socket>("name", ClosePolicy::DropPending);
    makeAndDestroyDerived<PollSet>();
    makeAndDestroyDerived<SocketContext>();
    makeAndDestroyDerived<SocketEndpoint>();
    makeAndDestroyDerived<SocketEndpoint>(Transport::Tcp, "node1", static_cast<unsigned short>(5555));
    makeAndDestroyDerived<ZmqContextTerminationException>("reason");
    makeAndDestroyDerived<TimeoutException>("reason");
    makeAndDestroy<OwnHeader>();
    makeAndDestroy<Listener>(Protocol::Sub, "name");
    makeAndDestroyDerived<Requester>("name", SocketEndpoint());
    makeAndDestroy<Subscriber<StringValue>>("name", [](const StringValue& /*message*/) {});
    makeAndDestroy<Replier<StringValue, StringValue>>("name",
                                                      [](const StringValue& /*request*/, StringValue& /*reply*/) {});
}
