#include "RecordingProxy.h"

#include "Endpoints.h"

#include <poll.h>

namespace rk::tests {

RecordingProxy::RecordingProxy(unsigned short target)
    : front(freshEndpoint(socket::Transport::Tcp)), listener(front), thread([this, target] { forward(target); }) {}

RecordingProxy::~RecordingProxy() {
    ending = true;
    listener.end();
    thread.join();
}

std::string RecordingProxy::bytesFrom(int side) const {
    const std::lock_guard<std::mutex> lock(mutex);
    return recorded[side];
}

void RecordingProxy::forward(unsigned short target) {
    const SystemConnection client = listener.accept();
    if (client.descriptor() < 0) {
        return;
    }
    const SystemConnection server(target);
    const SystemConnection* const sides[]{&client, &server};
    pollfd ends[]{{client.descriptor(), POLLIN, 0}, {server.descriptor(), POLLIN, 0}};
    for (bool open = true; open && !ending;) {
        ::poll(ends, 2, 10);
        for (int from = 0; from < 2 && open; ++from) {
            if (ends[from].revents != 0) {
                const std::string bytes = sides[from]->receive();
                const std::lock_guard<std::mutex> lock(mutex);
                recorded[from] += bytes;
                sides[1 - from]->send(bytes);
                open = !bytes.empty();
            }
        }
    }
}

} // namespace rk::tests
