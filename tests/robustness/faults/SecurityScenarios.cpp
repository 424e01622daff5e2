#include "Steps.h"
#include "support/Endpoints.h"

#include <rk/socket/Security.h>

#include <cstdio>
#include <fstream>
#include <memory>
#include <sys/stat.h>

namespace rk::tests {

namespace {

namespace Protocol = socket::Protocol;
namespace Security = socket::Security;
namespace Transport = socket::Transport;

/// Handles a process's files in a folder. Removes the folder's path from the outcome.
Step inFolder(const std::string& operation, const std::function<void()>& run) {
    Step step = call("Security::" + operation, nullptr, run);
    step.endpoint = temporaryFolder();
    return step;
}

/// A client that writes its files and connects to two servers, of which it knows the key of one. Then a server without
/// encryption.
std::vector<Step> security() {
    const std::string keyFile = temporaryFolder() + "/keys";
    const std::string trustFile = temporaryFolder() + "/trusted";
    const auto endpoint = freshEndpoint(Transport::Tcp);
    const auto keys = std::make_shared<Security::KeyPair>();
    const PartyPointer client = party("the one who asks", Protocol::Req);
    const PartyPointer server = party("the one who answers", Protocol::Rep);
    const auto write = [=] {
        std::remove(keyFile.c_str());
        Security::writeKeyFile(*keys, keyFile);
    };
    const auto enable = [=] {
        std::ofstream(trustFile) << keys->publicKey << " a client with a long name, and a comment\n"
                                 << keys->publicKey << " tcp://" << endpoint.address << ":*\n";
        chmod(trustFile.c_str(), S_IRUSR | S_IWUSR);
        Security::enable(keyFile, trustFile);
    };
    Step other = createAndConnect(client, {Transport::Tcp, "elsewhere", 1}, 0);
    other = throwing(std::move(other), "Socket: No trusted key for tcp://elsewhere:1 on " + client->header());
    other.debug.pop_back(); // not connected
    Step reserved = createAndConnect(client, {Transport::Inproc, "zeromq.zap.01", 0}, 0);
    reserved = throwing(std::move(reserved), "Socket: Cannot use the name of the authenticator on " + client->header());
    reserved.debug.clear();
    return {
        inFolder("generateKeyPair", [=] { *keys = Security::generateKeyPair(); }),
        refused(inFolder("writeKeyFile", [=] { Security::writeKeyFile({}, "keys"); }), "std::invalid_argument",
                "Security: Cannot write keys: not a key pair"),
        inFolder("writeKeyFile", write),
        refused(inFolder("readKeyFile", [=] { Security::readKeyFile("/dev/null"); }), "std::runtime_error",
                "Security: Cannot read /dev/null: not a regular file"),
        inFolder("readKeyFile", [=] { require(Security::readKeyFile(keyFile).secretKey == keys->secretKey, "key"); }),
        inFolder("enable", enable),
        inFolder("enable", enable),
        construct(client),
        createAndConnect(client, endpoint, 0),
        close(client),
        createAndConnect(client, freshEndpoint(Transport::Ipc), 0),
        close(client),
        other,
        reserved,
        destroy(client),
        construct(server),
        createAndConnect(server, freshEndpoint(Transport::Ipc), 0),
        destroy(server)};
}

} // namespace

std::vector<Scenario> securityScenarios() {
    return {{"security", security, false}};
}

} // namespace rk::tests
