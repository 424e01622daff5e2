#include "Strikes.h"

#include <zmq.h>

#include <algorithm>

namespace rk::tests {

bool isOneOf(std::string_view text, std::initializer_list<std::string_view> list) {
    return std::find(list.begin(), list.end(), text) != list.end();
}

const Site& siteOf(const Strike& strike) {
    return Sites::instance()[strike.site];
}

bool leavesAddressUnnoted(const Strike& strike) {
    return strike.function == lock && siteOf(strike).isIn("AddressBook");
}

bool isIgnored(const Strike& strike) {
    return strike.progress.logging ||
           isOneOf(strike.function,
                   {"zmq_close", "zmq_term", "zmq_ctx_destroy", "chmod", "gettimeofday", "usleep", "nanosleep"}) ||
           (strike.function == "zmq_setsockopt" && strike.option == ZMQ_LINGER) ||
           siteOf(strike).isIn("AddressBook::close") || siteOf(strike).isIn("AddressBook::giveUpAddressesOf") ||
           siteOf(strike).isIn("RegistryWatch");
}

} // namespace rk::tests
