// Orders some pieces, and retries if no receipt arrives: client [ENDPOINT [ID [PIECES]]]

#include "orders.pb.h"

#include <rk/socket/TimeoutException.h>
#include <rk/socket/utils/Requester.h>

#include <chrono>
#include <exception>
#include <iostream>
#include <string>

using namespace rk::socket;

int main(int argc, char** argv) {
    try {
        utils::Requester server("client", SocketEndpoint::FromString(argc > 1 ? argv[1] : "tcp://localhost:5556"));
        orders::Order order;
        order.set_id(argc > 2 ? argv[2] : "order 1"); // a repeated order has the same id: see server.cpp
        order.set_pieces(argc > 3 ? static_cast<unsigned int>(std::stoul(argv[3])) : 1);

        orders::Receipt receipt;
        server.request(order, receipt, std::chrono::seconds(1), 3);
        std::cout << receipt.id() << ": "
                  << (receipt.refusal().empty() ? std::to_string(receipt.left_in_stock()) + " left" : receipt.refusal())
                  << '\n';
        return 0;
    } catch (const TimeoutException& timeout) {
        std::cerr << "No receipt. The order may have been accepted all the same: " << timeout.what() << '\n';
    } catch (const std::exception& failure) {
        std::cerr << failure.what() << '\n';
    }
    return 1;
}
