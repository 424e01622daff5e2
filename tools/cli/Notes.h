#pragma once

/// \file
/// Paragraphs that end the help of several commands. The manual page has each of them once.

namespace rk::tools::notes {

constexpr const char* messages = R"(
Forms of messages:
  Only messages go to standard output. Errors, remarks and progress go to
  standard error. As text, a message is a line: control and invisible characters
  and bytes that are not UTF-8 are escaped, such as \n or \x1B, and a backslash
  is \\. A message of several parts is a line for each part.
  With --proto and --type, a message is a JSON object in a line. Fields have the
  names of the schema, 64-bit numbers are strings, and an extension is a field
  named [package.extension]. A message that is not of its type is reported with
  the first wrong byte, and the work continues.
)";

constexpr const char* dropping = R"(
Dropped messages:
  A published message reaches only subscribers that have connected before. pub
  waits half a second before the first message (--delay), or for subscriptions
  (--wait). Then pub and push wait for room in the queue of each peer, and at
  the end until everything is delivered. Live messages are dropped instead when
  a queue is full: those typed on a terminal, replayed with their timing, or
  sent with --live. The loss is reported at the end, with status 1.
  Most publishers drop messages for a slow subscriber. To see it, compare the
  sequence numbers in the messages with {sequence} of --template. A longer queue
  (--fifo) helps. Over IPC, a receiver with a full queue loses its unread
  messages when the sender ends. TCP has no such loss.
)";

constexpr const char* statistics = R"(
Statistics:
  size a/b/c and gap a/b/c are the least, the mean and the greatest value. A gap
  is the time between two messages, and the spread is its standard deviation. A
  megabit is 1,048,576 bits.
)";

constexpr const char* recordings = R"(
Recordings:
  A recording begins with the line "rk-socket recording 1". Each part of a
  message follows: 8 bytes with the time since the first message in nanoseconds,
  4 bytes with the length of the part, and the part. Numbers begin with their
  lowest byte. The highest bit of the length says that another part of the same
  message follows.
)";

constexpr const char* encryption = R"(
Encryption:
  The options --key and --trust encrypt TCP connections with CURVE. A side that
  listens admits the clients whose keys are in the file of --trust. A side that
  connects accepts only the server whose key is there for its endpoint. A line
  of the file is a key and the name of a client, or a key and the endpoint of a
  server: tcp://HOST:PORT or tcp://HOST:*. keygen writes a key pair and prints
  both lines for it. probe tells whether two sides trust each other, and if not,
  why.
)";

} // namespace rk::tools::notes
