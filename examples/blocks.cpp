// Sends blocks of bytes instead of protobuf messages: blocks
//
// Both ends must agree on the layout. This is safe between programs of the same build on the same kind of machine.

#include <rk/socket/Socket.h>

#include <exception>
#include <iostream>
#include <stdexcept>
#include <vector>

using namespace rk::socket;

namespace {

struct Sample {
    unsigned int channel;
    float volts;
};

} // namespace

int main() {
    try {
        const auto endpoint = SocketEndpoint::FromString("inproc://samples");
        Socket recorder("recorder", ClosePolicy::DropPending);
        Socket probe("probe", ClosePolicy::DropPending);
        recorder.createAndConnect(Protocol::Rep, endpoint, 1000);
        probe.createAndConnect(Protocol::Req, endpoint, 1000);

        const std::vector<Sample> measured{{1, 0.5F}, {2, 3.25F}};
        probe.send(measured.data(), measured.size() * sizeof(Sample));

        std::vector<Sample> received(100);
        const auto size = static_cast<std::size_t>(recorder.receive(received.data(), received.size() * sizeof(Sample)));
        if (size % sizeof(Sample) != 0 || size > received.size() * sizeof(Sample)) {
            throw std::runtime_error("not a block of samples"); // a longer block has been cut
        }
        received.resize(size / sizeof(Sample));
        for (const Sample& sample : received) {
            std::cout << "channel " << sample.channel << ": " << sample.volts << " V\n";
        }
        recorder.send("thanks");
    } catch (const std::exception& failure) {
        std::cerr << failure.what() << '\n';
        return 1;
    }
}
