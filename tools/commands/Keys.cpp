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

/// The two lines of a file of trusted keys that admit the owner of the key as a client, and name its server.
std::string linesToPaste(const std::string& publicKey, const std::string& path) {
    std::array<char, 256> host{};
    ::gethostname(host.data(), host.size() - 1);
    const std::string name = std::filesystem::path(path).stem().string() + "@" + host.data();
    const bool isName = std::all_of(name.begin(), name.end(), [](char c) { return c > ' ' && c <= '~'; });
    return publicKey + " " + (isName ? name : "client") + "\n" + publicKey + " tcp://" + host.data() + ":*\n";
}

/// `keygen` and `pubkey`: print something about a key file.
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
    addExamples(command,
                {{"Make the keys of this program, and see what its peers have to trust", "rk-socket keygen my.key"}});
    return std::make_unique<KeyCommand>(
        command, "where the key pair is written, which only you can read then; the file must not exist",
        [](const std::string& path) {
            const Security::KeyPair keys = Security::generateKeyPair();
            Security::writeKeyFile(keys, path);
            return linesToPaste(keys.publicKey, path);
        });
}

std::unique_ptr<Command> createPubkey(CLI::App& command) {
    addExamples(command, {{"Tell a peer which key to trust", "rk-socket pubkey my.key"}});
    return std::make_unique<KeyCommand>(command, "a key pair as keygen writes it", [](const std::string& path) {
        return Security::readKeyFile(path).publicKey + "\n";
    });
}

} // namespace rk::tools
