// Prints weather reports as they arrive, until its input ends: subscriber [ENDPOINT]

#include "weather.pb.h"

#include <rk/socket/utils/Subscriber.h>

#include <iostream>
#include <string>

int main(int argc, char** argv) {
    rk::socket::utils::Subscriber<weather::Report> subscriber("subscriber", [](const weather::Report& report) {
        std::cout << report.station() << " " << report.number() << ": " << report.celsius() << " C" << std::endl;
    });
    std::string error;
    if (!subscriber.addListenEndpoint(argc > 1 ? argv[1] : "tcp://localhost:5555", error) || !subscriber.start(error)) {
        std::cerr << error << '\n';
        return 1;
    }
    std::cin.get();
}
