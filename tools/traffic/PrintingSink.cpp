#include "display/Complaints.h"
#include "messages/Codec.h"
#include "system/Output.h"
#include "traffic/MessageSink.h"

namespace rk::tools {

namespace {

class PrintingSink : public MessageSink {
public:
    PrintingSink(Codec& codecToUse, Output& outputToUse, Complaints& complaintsToUse)
        : codec(codecToUse), output(outputToUse), complaints(complaintsToUse) {}

    void take(const Received& message) override {
        try {
            output.write(codec.decode(message.bytes));
        } catch (const CodecError& error) {
            output.flush();
            complaints.add("message " + std::to_string(message.number) + ", " + std::to_string(message.bytes.size()) +
                           " bytes: " + error.what());
        }
    }

    void pause(Clock::time_point /*now*/) override { output.flushForReader(); }
    void finish(Clock::time_point /*now*/) override { output.flush(); }

private:
    Codec& codec;
    Output& output;
    Complaints& complaints;
};

} // namespace

std::unique_ptr<MessageSink> makePrintingSink(Codec& codec, Output& output, Complaints& complaints) {
    return std::make_unique<PrintingSink>(codec, output, complaints);
}

} // namespace rk::tools
