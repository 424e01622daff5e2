#include "crash/EndSignal.h"
#include "crash/History.h"
#include "crash/roles.h"

#include <csignal>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <sys/prctl.h>

using namespace rk::tests::crash;
using rk::socket::SocketEndpoint;

namespace {

int usage() {
    std::cerr << "usage: crash_child server|publisher|subscriber NAME ENDPOINT...\n"
                 "       crash_child client NAME ENDPOINT TIMEOUT\n"
                 "       crash_child closer NAME ENDPOINT POLICY\n";
    return 2;
}

int play(const std::string& role, const std::vector<std::string>& arguments) {
    const std::string& endpoint = arguments[0];
    if (role == "server") {
        serve(arguments);
    } else if (role == "publisher") {
        publish(SocketEndpoint::FromString(endpoint));
    } else if (role == "subscriber") {
        subscribe(endpoint);
    } else if (role == "client" && arguments.size() == 2) {
        ask(SocketEndpoint::FromString(endpoint), static_cast<unsigned>(std::stoul(arguments[1])));
    } else if (role == "closer" && arguments.size() == 2) {
        sendAndClose(SocketEndpoint::FromString(endpoint),
                     static_cast<rk::socket::ClosePolicy::ClosePolicy>(std::stoi(arguments[1])));
    } else {
        return usage();
    }
    return EXIT_SUCCESS;
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 4) {
        return usage();
    }
    // Nobody is left behind by a run that is killed itself.
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    nameProcess(argv[2]);
    blockEndSignal();
    try {
        return play(argv[1], {argv + 3, argv + argc});
    } catch (const std::exception& failure) {
        record(std::string("error ") + failure.what());
        return EXIT_FAILURE;
    }
}
