#include "cli/Options.h"
#include "commands/Command.h"
#include "messages/Schema.h"
#include "messages/Skeleton.h"
#include "system/Output.h"

namespace rk::tools {

namespace {

class Types : public Command {
public:
    explicit Types(CLI::App& command) {
        addSchemaFiles(command, codec);
        addText(command, "--type", "NAME", codec.type, "print this type as JSON with all fields, to fill in");
        command.callback([this] {
            if (!codec.hasSchema()) {
                throw CLI::RequiredError("--proto or --descriptor-set");
            }
        });
        endHelp(command, {},
                {{"List the types", "rk-socket types --proto telemetry.proto"},
                 {"Print a message of one type", "rk-socket types --proto telemetry.proto --type Command"}});
    }

    ExitStatus run(const Surroundings& surroundings) override {
        Output output(surroundings.stop);
        Schema schema(codec);
        if (codec.type) {
            output.write(skeletonOf(*schema.type(*codec.type)) + "\n");
        } else {
            for (const std::string& name : schema.typeNames()) {
                output.write(name + "\n");
            }
        }
        output.flush();
        return ExitStatus::Done;
    }

private:
    CodecSettings codec;
};

} // namespace

std::unique_ptr<Command> createTypes(CLI::App& command) {
    return std::make_unique<Types>(command);
}

} // namespace rk::tools
