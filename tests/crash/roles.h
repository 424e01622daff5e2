#pragma once

#include <rk/socket/ClosePolicy.h>
#include <rk/socket/SocketEndpoint.h>

#include <string>
#include <vector>

namespace rk::tests::crash {

/// Serves requests with a reply listener on all endpoints, until it is asked to end.
void serve(const std::vector<std::string>& endpoints);

/// Asks, and asks again when no reply comes within `timeout` milliseconds, until it is asked to end.
void ask(const socket::SocketEndpoint& endpoint, unsigned timeout);

/// Publishes numbers, until it is asked to end.
void publish(const socket::SocketEndpoint& endpoint);

/// Follows a feed with a subscribe listener, until it is asked to end.
void subscribe(const std::string& endpoint);

/// Sends one request, closes the socket and returns: it is for the close policy to deliver it.
void sendAndClose(const socket::SocketEndpoint& endpoint, socket::ClosePolicy::ClosePolicy policy);

} // namespace rk::tests::crash
