#include "soak/FeedLane.h"

#include "soak/Patience.h"
#include "support/messages.pb.h"

#include <stdexcept>
#include <utility>

namespace rk::tests::soak {

namespace {

constexpr unsigned burst = 20;
constexpr std::chrono::milliseconds betweenGreetings{10};

} // namespace

Reader::Reader(const std::string& readerName, Figures& allFigures, std::function<void(const std::string&)> onBreach)
    : SocketListener(socket::Protocol::Sub, readerName), figures(allFigures), breach(std::move(onBreach)) {}

Reader::~Reader() {
    std::string ignored;
    stop(ignored);
}

std::shared_ptr<google::protobuf::Message> Reader::createMessage() {
    return std::make_shared<Text>();
}

void Reader::handleMessage(google::protobuf::Message* message, std::shared_ptr<socket::Socket> /*socket*/) {
    const std::uint64_t number = std::stoull(static_cast<Text*>(message)->text());
    check(number);
    if (number % 100 == 0) {
        ++figures.failures;
        throw std::runtime_error("as every hundredth time");
    }
}

void Reader::check(std::uint64_t number) {
    const std::lock_guard<std::mutex> lock(mutex);
    if (number <= last || (joined && number != last + 1)) {
        breach("message " + std::to_string(number) + " comes after " + std::to_string(last));
    }
    ++figures.published;
    last = number;
    changed.notify_all();
}

void Reader::setJoined(bool nothingMayBeMissed) {
    const std::lock_guard<std::mutex> lock(mutex);
    joined = nothingMayBeMissed;
}

bool Reader::waitFor(std::uint64_t number, std::chrono::milliseconds time) const {
    std::unique_lock<std::mutex> lock(mutex);
    return changed.wait_for(lock, time, [&] { return last >= number; });
}

FeedLane::FeedLane(socket::Transport::Transport transport, std::uint64_t seed, Figures& allFigures)
    : Lane("feed", transport, seed, allFigures),
      reader(name() + "-reader", allFigures, [this](const std::string& text) { breach(text); }),
      publisher(name() + "-publisher", socket::ClosePolicy::WaitForDelivery) {
    publisher.createAndConnect(socket::Protocol::Pub, endpoint, 0);
    std::string error;
    if (!reader.addListenEndpoint(endpoint.toString(socket::Protocol::Sub), error) || !reader.start(error)) {
        throw std::runtime_error(error);
    }
    join();
}

void FeedLane::step() {
    if (onceIn(60)) {
        restartReader();
    } else if (onceIn(20)) {
        rebuildPublisher();
    } else {
        publishBurst();
        waitForAll();
    }
}

/// Publishes until the first message has arrived: from then on none may be missed.
void FeedLane::join() {
    const std::uint64_t first = number + 1;
    const auto deadline = std::chrono::steady_clock::now() + patience;
    do {
        if (std::chrono::steady_clock::now() > deadline) {
            breach("the subscriber does not join");
            return;
        }
        publish();
    } while (!reader.waitFor(first, betweenGreetings));
    waitForAll();
    reader.setJoined(true);
}

void FeedLane::restartReader() {
    reader.setJoined(false);
    std::string error;
    if (!reader.stop(error) || !reader.start(error)) {
        breach("cannot restart the subscriber: " + error);
    }
    ++figures.restarts;
    join();
}

/// The close policy keeps what the replaced socket has not sent yet.
void FeedLane::rebuildPublisher() {
    publishBurst();
    publisher.resetConnections();
    waitForAll();
    ++figures.restarts;
    reader.setJoined(false);
    if (reconnectsByItself) {
        join();
    } else {
        restartReader();
    }
}

void FeedLane::publishBurst() {
    for (unsigned i = 0; i < burst; ++i) {
        publish();
    }
}

void FeedLane::publish() {
    Text message;
    message.set_text(std::to_string(++number));
    publisher.sendProtoBuf(&message);
}

void FeedLane::waitForAll() {
    if (!reader.waitFor(number, patience)) {
        breach("message " + std::to_string(number) + " is lost");
    }
}

} // namespace rk::tests::soak
