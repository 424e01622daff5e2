#include "display/Complaints.h"
#include "system/Output.h"
#include "traffic/MessageSink.h"

namespace rk::tools {

namespace {

class PrintingSink : public MessageSink {
public:
    PrintingSink(MessageCodec& codecToUse, Output& outputToUse, Complaints& complaintsToUse)
        : codec(codecToUse), output(outputToUse), complaints(complaintsToUse) {}

    void take(const Received& message) override {
        try {
            codec.decode(message, output.pending());
            output.flushWhenFull();
        } catch (const CodecError& error) {
            output.flush();
            complaints.add("message " + std::to_string(message.number) + ", " + std::to_string(message.size) +
                           " bytes: " + error.what());
        }
    }

    void pause(Clock::time_point /*now*/) override { output.flushForReader(); }
    bool keepsBack() const override { return output.hasPending(); }
    void finish(Clock::time_point /*now*/) override { output.flush(); }

private:
    MessageCodec& codec;
    Output& output;
    Complaints& complaints;
};

} // namespace

std::unique_ptr<MessageSink> makePrintingSink(MessageCodec& codec, Output& output, Complaints& complaints) {
    return std::make_unique<PrintingSink>(codec, output, complaints);
}

} // namespace rk::tools
