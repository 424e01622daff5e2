#include "soak/Lane.h"

#include "support/Endpoints.h"

namespace rk::tests::soak {

Lane::Lane(const std::string& kind, socket::Transport::Transport transport, std::uint64_t seed, Figures& allFigures)
    : figures(allFigures),
      endpoint(freshEndpoint(transport)),
      reconnectsByItself(transport != socket::Transport::Inproc),
      laneName(kind + "-" + socket::Transport::ToString(transport)),
      random(seed) {}

bool Lane::onceIn(unsigned times) {
    return random() % times == 0;
}

void Lane::breach(const std::string& text) {
    figures.breach(laneName + ": " + text);
}

} // namespace rk::tests::soak
