#include "Payload.h"
#include "Peer.h"

#include <chrono>
#include <condition_variable>
#include <functional>
#include <ignition/transport/Node.hh>
#include <ignition/transport/config.hh>
#include <mutex>
#include <stdexcept>

namespace rk::benchmarks {

namespace {

using ignition::transport::Node;

constexpr unsigned int patience = 10000;

std::string topicOf(const std::string& address) {
    return "/benchmark" + address;
}

/// It finds its partners by itself, over multicast; the address only makes the topic one of its own.
class IgnitionClient final : public Client {
public:
    IgnitionClient(const Cell& measured, const std::string& address, const Control& wire)
        : cell(measured), control(wire), topic(topicOf(address)), payload(Payload::of(measured)) {
        if (cell.pattern == Pattern::PublishSubscribe) {
            std::function<void(const Reading&)> take = [this](const Reading& reading) { onReading(reading); };
            if (!node.Subscribe(topic, take)) {
                throw std::runtime_error("Ignition Transport: no subscription");
            }
        }
    }

    void meet() override {
        if (cell.pattern == Pattern::RequestReply) {
            exchange(1);
            return;
        }
        std::unique_lock<std::mutex> lock(mutex);
        await(lock, [this] { return greeted; });
    }

    void exchange(int count) override {
        if (cell.pattern == Pattern::PublishSubscribe) {
            {
                const std::lock_guard<std::mutex> lock(mutex);
                awaited = count;
            }
            control.order(static_cast<std::uint32_t>(count));
            std::unique_lock<std::mutex> lock(mutex);
            await(lock, [this] { return awaited == 0; });
            return;
        }
        for (int i = 0; i < count; ++i) {
            bool good = false;
            if (!node.Request(topic, payload.message, patience, reply, good) || !good) {
                throw std::runtime_error("Ignition Transport: no reply");
            }
        }
    }

    void end() override { control.order(0); }

private:
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
    void await(std::unique_lock<std::mutex>& lock, const Condition& condition) {
        if (!changed.wait_for(lock, std::chrono::milliseconds(patience), condition)) {
            throw std::runtime_error("Ignition Transport: readings are missing");
        }
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

class IgnitionPeer final : public Peer {
public:
    std::string name() const override { return "Ignition Transport"; }
    std::string version() const override { return IGNITION_TRANSPORT_VERSION_FULL; }
    bool offers(const Cell& cell) const override { return cell.transport == "tcp"; }

    void serve(const Cell& cell, const std::string& address, const Control& control) const override {
        const Payload payload = Payload::of(cell);
        Node node;
        if (cell.pattern == Pattern::PublishSubscribe) {
            publish(node, topicOf(address), payload, control);
            return;
        }
        std::function<bool(const Reading&, Reading&)> answer = [&payload](const Reading&, Reading& reply) {
            reply = payload.message;
            return true;
        };
        if (!node.Advertise(topicOf(address), answer)) {
            throw std::runtime_error("Ignition Transport: no service");
        }
        while (control.awaitOrder() != 0) {
        }
    }

    std::unique_ptr<Client> connect(const Cell& cell, const std::string& address,
                                    const Control& control) const override {
        return std::make_unique<IgnitionClient>(cell, address, control);
    }

private:
    static void publish(Node& node, const std::string& topic, const Payload& payload, const Control& control) {
        Node::Publisher publisher = node.Advertise<Reading>(topic);
        const Payload greeting = Payload::small();
        do {
            publisher.Publish(greeting.message);
        } while (!control.hasOrder(5));
        while (std::uint32_t count = control.awaitOrder()) {
            while (count-- > 0) {
                publisher.Publish(payload.message);
            }
        }
    }
};

} // namespace

std::unique_ptr<Peer> makeIgnition() {
    return std::make_unique<IgnitionPeer>();
}

} // namespace rk::benchmarks
