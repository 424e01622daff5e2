#include "Link.h"

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <ignition/transport/Node.hh>
#include <ignition/transport/config.hh>
#include <mutex>

namespace rk::benchmarks {

namespace {

using ignition::transport::Node;

constexpr unsigned int patience = 10000;

/// Returns a unique topic. A node finds its peers by multicast and not by address.
std::string topicOf(const End& end) {
    return "/benchmark" + end.url.substr(end.url.rfind(':') + 1);
}

/// Restricts discovery to this machine, and makes the queues unlimited.
bool configure() {
    ::setenv("IGN_IP", "127.0.0.1", 1);
    ::setenv("IGN_TRANSPORT_RCVHWM", "0", 1);
    ::setenv("IGN_TRANSPORT_SNDHWM", "0", 1);
    return true;
}

class IgnitionClient final : public Client {
public:
    IgnitionClient(const End& end, const Control& wire)
        : cell(end.cell), control(wire), topic(topicOf(end)), payload(Payload::of(end.cell)) {
        if (!cell.requests()) {
            std::function<void(const Reading&)> take = [this](const Reading& reading) { onReading(reading); };
            require(node.Subscribe(topic, take), "Ignition Transport's subscription");
        }
    }

    void meet() override {
        if (cell.requests()) {
            exchange(1);
        } else {
            await([this] { return greeted; });
        }
    }

    void exchange(int count) override {
        if (!cell.requests()) {
            subscribe(count);
            return;
        }
        for (int i = 0; i < count; ++i) {
            bool good = false;
            require(node.Request(topic, payload.message, patience, reply, good) && good,
                    "Ignition Transport's request");
        }
    }

    void end() override { control.order(0); }

private:
    void subscribe(int count) {
        {
            const std::lock_guard<std::mutex> lock(mutex);
            awaited = count;
        }
        control.order(static_cast<std::uint32_t>(count));
        await([this] { return awaited == 0; });
    }

    void onReading(const Reading& reading) {
        const std::lock_guard<std::mutex> lock(mutex);
        if (reading.payload().size() != payload.message.payload().size()) {
            greeted = true;
        } else if (--awaited > 0) {
            return;
        }
        changed.notify_one();
    }

    template <class Condition>
    void await(const Condition& condition) {
        std::unique_lock<std::mutex> lock(mutex);
        require(changed.wait_for(lock, std::chrono::milliseconds(patience), condition), "Ignition Transport's topic");
    }

    const Cell cell;
    const Control control;
    const std::string topic;
    const Payload payload;
    Reading reply;
    std::mutex mutex;
    std::condition_variable changed;
    bool greeted = false;
    int awaited = 0;
    Node node;
};

void serve(const End& end, const Control& control) {
    Node node;
    if (!end.cell.requests()) {
        Node::Publisher publisher = node.Advertise<Reading>(topicOf(end));
        publishOrders(control, end.cell, [&publisher](Payload& payload) { publisher.Publish(payload.message); });
        return;
    }
    const Payload payload = Payload::of(end.cell);
    std::function<bool(const Reading&, Reading&)> answer = [&payload](const Reading&, Reading& reply) {
        reply = payload.message;
        return true;
    };
    require(node.Advertise(topicOf(end), answer), "Ignition Transport's service");
    while (control.awaitOrder() != 0) {
    }
}

const bool added =
    configure() &&
    add({"Ignition Transport",
         IGNITION_TRANSPORT_VERSION_FULL,
         {"tcp"},
         serve,
         [](const End& end, const Control& control) { return std::make_unique<IgnitionClient>(end, control); }});

} // namespace

} // namespace rk::benchmarks
