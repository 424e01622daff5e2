#include "support/KeyFiles.h"
#include "support/Test.h"

#include <sys/stat.h>
#include <unistd.h>

namespace rk::tests {

namespace {

const std::string key = Security::generateKeyPair().publicKey;
const std::string otherKey = Security::generateKeyPair().publicKey;

/// Files that `enable` rejects. The tests of `Security` cover the files that it accepts.
class TrustedKeys : public testing::Test {
protected:
    void enable() const { Security::enable(keyFile, path); }

    void accept(const std::string& content) const {
        files.write("trusted", content);
        EXPECT_NO_THROW(enable()) << content;
    }

    /// Returns the message for this content, without the path.
    std::string refusalOf(const std::string& content) const {
        files.write("trusted", content);
        const std::string text = textThrownBy([&] { enable(); });
        const std::string begin = "Security: " + path;
        EXPECT_EQ(begin, text.substr(0, begin.size()));
        return text.substr(begin.size());
    }

    const KeyFiles files{};
    const std::string keyFile = files.write("keys", Security::generateKeyPair());
    const std::string path = files.pathOf("trusted");
};

} // namespace

TEST_F(TrustedKeys, MayBeNone) {
    accept("");
    accept("\n\n  \n\t\n");
    accept("# no key\n#\n  # nor here\n#" + key + "\n");
}

TEST_F(TrustedKeys, HaveNames) {
    accept(key + " alice\n" + otherKey + "\t  bob\n");
    accept("  " + key + " alice");
    accept(key + " alice\r\n" + otherKey + " bob\r\n");
    accept(key + " alice\n" + key + " alice@home\n" + otherKey + " !~\n");
}

TEST_F(TrustedKeys, HaveEndpoints) {
    accept(key + " tcp://server:5555\n" + key + " tcp://server:*\n");
    accept(key + " tcp://~home:1\n");
    accept(key + " tcp://[::1]:1\n" + otherKey + " tcp://10.0.0.1;server:65535\n");
}

TEST_F(TrustedKeys, AllowCommentsAfterTheName) {
    accept(key + " alice # and more\n" + otherKey + " tcp://server:5555 the first\n");
}

TEST_F(TrustedKeys, MayBeReadableByAll) {
    chmod(files.write("trusted", key + " alice").c_str(), 0444);
    EXPECT_NO_THROW(enable());
}

TEST_F(TrustedKeys, AreRefusedWithTheLine) {
    EXPECT_EQ(":3: not a key", refusalOf("# comment\n\nkey alice\n"));
    EXPECT_EQ(":2: not a key", refusalOf(key + " alice\n" + otherKey.substr(0, 39) + " bob\n"));
    EXPECT_EQ(":1: not a key", refusalOf(key + "x alice\n"));
    EXPECT_EQ(":1: not a key", refusalOf("x"));
}

TEST_F(TrustedKeys, AreRefusedWithoutName) {
    EXPECT_EQ(":1: no name or endpoint after the key", refusalOf(key));
    EXPECT_EQ(":1: no name or endpoint after the key", refusalOf(key + "  \t\n"));
    EXPECT_EQ(":1: no name or endpoint after the key", refusalOf(key + " # alice\n"));
}

TEST_F(TrustedKeys, AreRefusedWithUnprintableNames) {
    EXPECT_EQ(":1: a name that is not printable", refusalOf(key + " al\x1b[8mice\n"));
    EXPECT_EQ(":1: a name that is not printable", refusalOf(key + " \x7f\n"));
    EXPECT_EQ(":1: a name that is not printable", refusalOf(key + " alic\xc3\xa9\n"));
    EXPECT_EQ(":1: a name that is not printable", refusalOf(key + " a" + std::string(1, '\0') + "\n"));
}

TEST_F(TrustedKeys, AreRefusedWithOtherEndpoints) {
    for (const char* const endpoint :
         {"ipc://path:1", "inproc://name:1", "TCP://server:1", "udp://server:1", "tcp://server", "tcp://:1",
          "tcp://server:", "tcp://server:0", "tcp://server:65536", "tcp://server:-1", "tcp://server:+1",
          "tcp://server:1x", "tcp://server:**", "x://", "tcp://", "tcp:", "server:1", ":"}) {
        EXPECT_EQ(":1: not an endpoint like tcp://host:port or tcp://host:*", refusalOf(key + " " + endpoint + "\n"))
            << endpoint;
    }
}

TEST_F(TrustedKeys, AreRefusedWhenTwoForOneEndpoint) {
    EXPECT_EQ(":2: a second key for tcp://server:05555",
              refusalOf(key + " tcp://server:5555\n" + otherKey + " tcp://server:05555\n"));
    EXPECT_EQ(":3: a second key for tcp://server:*",
              refusalOf(key + " tcp://server:*\n" + key + " tcp://server:*\n" + otherKey + " tcp://server:*\n"));
}

TEST_F(TrustedKeys, AreRefusedWhenOthersCanWrite) {
    for (const mode_t other : {0020U, 0002U}) {
        chmod(files.write("trusted", key + " alice").c_str(), 0400U | other);
        EXPECT_EQ("Security: Cannot read " + path + ": other users can change it", textThrownBy([&] { enable(); }));
    }
}

} // namespace rk::tests
