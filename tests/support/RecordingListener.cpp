#include "RecordingListener.h"

#include "ThreadFaults.h"

#include <chrono>
#include <optional>
#include <utility>

namespace rk::tests {

RecordingListener::RecordingListener(Protocol::Protocol pattern)
    : SocketListener(pattern, "service"),
      make([] { return std::make_shared<Text>(); }),
      handle(pattern == Protocol::Rep ? Handler(echo) : Handler(ignore)) {}

RecordingListener::~RecordingListener() {
    std::string error;
    EXPECT_TRUE(RecordingListener::stop(error)) << error;
}

bool RecordingListener::stop(std::string& error) {
    std::optional<PollsRunOut> pollsRunOut;
    const BeforeJoin hook([&] { pollsRunOut.emplace(); });
    return SocketListener::stop(error);
}

std::shared_ptr<google::protobuf::Message> RecordingListener::createMessage() {
    Maker current;
    {
        const std::lock_guard<std::mutex> lock(mutex);
        current = make;
    }
    return current();
}

void RecordingListener::handleMessage(google::protobuf::Message* message, std::shared_ptr<Socket> socket) {
    auto& text = dynamic_cast<Text&>(*message);
    Handler current;
    {
        const std::lock_guard<std::mutex> lock(mutex);
        received.push_back(text.text());
        current = handle;
        changed.notify_all();
    }
    current(text, socket);
}

void RecordingListener::serve(const SocketEndpoint& endpoint) {
    std::string error;
    ASSERT_TRUE(addListenEndpoint(endpoint.toString(Protocol::Req), error)) << error;
    ASSERT_TRUE(start(error)) << error;
}

void RecordingListener::setMaker(Maker maker) {
    const std::lock_guard<std::mutex> lock(mutex);
    make = std::move(maker);
}

void RecordingListener::setHandler(Handler handler) {
    const std::lock_guard<std::mutex> lock(mutex);
    handle = std::move(handler);
}

std::vector<std::string> RecordingListener::texts() const {
    const std::lock_guard<std::mutex> lock(mutex);
    return received;
}

bool RecordingListener::waitForTexts(std::size_t count) const {
    std::unique_lock<std::mutex> lock(mutex);
    return changed.wait_for(lock, std::chrono::seconds(20), [&] { return received.size() >= count; });
}

void echo(Text& text, const std::shared_ptr<Socket>& socket) {
    socket->sendProtoBuf(&text);
}

RecordingListener::Handler echoAfter(std::promise<void>& event) {
    return [&event](Text& text, const std::shared_ptr<Socket>& socket) {
        event.get_future().wait();
        echo(text, socket);
    };
}

void ignore(Text& /*text*/, const std::shared_ptr<Socket>& /*socket*/) {}

std::string ask(const SocketEndpoint& endpoint, const std::string& question) {
    Socket client("client", ClosePolicy::DropPending);
    client.createAndConnect(Protocol::Req, endpoint, 20000);
    Text text;
    text.set_text(question);
    client.sendProtoBuf(&text);
    client.receiveProtoBuf(&text, 1000000);
    return text.text();
}

} // namespace rk::tests
