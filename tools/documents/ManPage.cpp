#include "ManPage.h"

namespace rk::tools::documents {

namespace {

const char* const description = R"(.P
Publish and reply sockets listen, subscribe and request sockets connect; the order of starting does not matter.
On TCP, those that listen do so on all interfaces, whatever the host in the endpoint.
A message has one part; each part of another program's multi\-part message is printed as a message, and
.B rep
answers the last one.
.P
Only data is written to standard output.
Errors, remarks, round\-trip times and progress go to standard error.
.P
A publisher cannot know who listens, and what is sent before a subscriber has connected does not reach it.
Hence
.B pub
waits half a second before the first message
.RB ( \-\-delay ).
Subscribers that are waiting then try to connect every tenth of a second.
Where a message must arrive, send it repeatedly, or use
.BR req " and " rep .
)";

const char* const messages =
    R"(As text, a message is one line: control characters and bytes that are not UTF\-8 are escaped, as \en, \er or \ex1B.
With
.BR "\-\-format hex" ,
it is a line of hexadecimal digits, which
.B \-\-hex
reads; with
.BR "\-\-format raw" ,
it is its bytes.
.P
With
.BR \-\-proto " and " \-\-type ,
messages are protobuf messages of that type, and each is written and read as a JSON object in a line.
Fields are named as in the schema; 64\-bit numbers are strings, as protobuf's JSON has it.
Imports of google/protobuf/*.proto are always found.
A type may be named without its package.
A message that is not of that type is reported on standard error, with the byte from which on it is none and what could be
decoded before, and the next one awaited.
A line that is no JSON of that type is reported with its number, and the next one sent.
.P
.B rep
gives a command the request as it is, or as JSON if there is a schema, and sends what the command writes.
Where there is nothing good to answer, the reply is empty, so that the client does not wait for ever.
)";

std::string escaped(const std::string& text) {
    std::string result;
    for (const char character : text) {
        if (character == '\\') {
            result += "\\e";
        } else if (character == '-') {
            result += "\\-";
        } else if (character == '\'') {
            result += "\\(aq";
        } else {
            result += character;
        }
    }
    return result;
}

std::string entry(const ArgumentDescription& argument, const std::string& font) {
    std::string text = ".TP\n" + font + " ";
    for (const std::string& spelling : argument.spellings) {
        text += (text.back() == ' ' ? "" : ", ") + escaped(spelling);
    }
    text += argument.placeholder.empty() ? "" : " \\fI" + argument.placeholder + "\\fP";
    return text + "\n" + escaped(argument.text) + "\n";
}

std::string commandSection(const CommandDescription& command) {
    std::string text = ".SS " + escaped(command.synopsis) + "\n" + escaped(command.text) + ".\n";
    for (const ArgumentDescription& positional : command.positionals) {
        text += entry(positional, ".I");
    }
    for (const ArgumentDescription& option : command.options) {
        text += entry(option, ".B");
    }
    return text;
}

std::string examples(const CommandDescription& command) {
    std::string text;
    for (const Example& example : command.examples) {
        text += ".P\n" + escaped(example.purpose) + ":\n.P\n.RS\n.nf\n" + escaped(example.command) + "\n.fi\n.RE\n";
    }
    return text;
}

} // namespace

std::string manPage(const Description& program) {
    std::string text = R"(.TH RK\-SOCKET 1 "" "rk\-socket )" + program.version + R"(" "User Commands"
.SH NAME
rk\-socket \- see and speak on the endpoints of 0MQ sockets
.SH SYNOPSIS
.nf
)";
    std::string sections;
    std::string allExamples;
    for (const CommandDescription& command : program.commands) {
        text += "rk\\-socket " + escaped(command.synopsis) + "\n";
        sections += commandSection(command);
        allExamples += examples(command);
    }
    text += "rk\\-socket \\-\\-help | \\-\\-version\n.fi\n.SH DESCRIPTION\n" + escaped(program.text) + "\n" +
            description + ".SH COMMANDS\n.I TIME\nis a number and us, ms, s (also without a unit) or min.\n" +
            sections + ".SH MESSAGES\n" + messages + ".SH EXIT STATUS\n";
    for (const auto& [status, meaning] : program.exitStatuses) {
        text += ".TP\n.B " + status + "\n" + escaped(meaning) + "\n";
    }
    text += ".SH ENVIRONMENT\n.TP\n.B NO_COLOR\nif set, nothing is coloured; neither is it without a terminal\n";
    return text + ".SH EXAMPLES\n" + allExamples.substr(std::string(".P\n").size());
}

} // namespace rk::tools::documents
