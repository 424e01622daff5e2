#include "cli/Notes.h"
#include "cli/Options.h"
#include "commands/Command.h"
#include "system/Output.h"

#include <rk/socket/Security.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <functional>
#include <unistd.h>

namespace rk::tools {

namespace {

namespace Security = rk::socket::Security;

/// The lines for a file of trusted keys: one admits the owner of the key as a client, the other trusts it as a server.
std::string linesToPaste(const std::string& publicKey, const std::string& path) {
    std::array<char, 256> host{};
    ::gethostname(host.data(), host.size() - 1);
    const std::string name = std::filesystem::path(path).stem().string() + "@" + host.data();
    const bool isName =
        std::all_of(name.begin(), name.end(), [](char c) { return c > ' ' && c <= '~' && c != ':' && c != '#'; });
    return publicKey + " " + (isName ? name : "client") + "\n" + publicKey + " tcp://" + host.data() + ":*\n";
}

/// `keygen` and `pubkey`: print lines on a key file.
class KeyCommand : public Command {
public:
    using Text = std::function<std::string(const std::string& path)>;

    KeyCommand(CLI::App& command, const std::string& description, Text textToPrint) : text(std::move(textToPrint)) {
        command.add_option("FILE", path, description)->required()->check(notEmpty());
    }

    ExitStatus run(const Surroundings& surroundings) override {
        Output output(surroundings.stop);
        output.write(text(path));
        output.flush();
        return ExitStatus::Done;
    }

private:
    Text text;
    std::string path;
};

} // namespace

std::unique_ptr<Command> createKeygen(CLI::App& command) {
    endHelp(command, {notes::encryption},
            {{"Write a key pair, and print the lines for its peers", "rk-socket keygen my.key"}});
    return std::make_unique<KeyCommand>(command,
                                        "where to write the key pair, readable only by you; the file must not exist",
                                        [](const std::string& path) {
                                            const Security::KeyPair keys = Security::generateKeyPair();
                                            Security::writeKeyFile(keys, path);
                                            return linesToPaste(keys.publicKey, path);
                                        });
}

std::unique_ptr<Command> createPubkey(CLI::App& command) {
    endHelp(command, {notes::encryption}, {{"Print the key that a peer has to trust", "rk-socket pubkey my.key"}});
    return std::make_unique<KeyCommand>(command, "a key pair of keygen", [](const std::string& path) {
        return Security::readKeyFile(path).publicKey + "\n";
    });
}

} // namespace rk::tools
