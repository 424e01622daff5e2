#include "support/KeyFiles.h"
#include "support/Test.h"

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <sys/resource.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace rk::tests {

namespace {

using Security::KeyPair;

// A key pair for tests only.
const std::string publicKey = "Yne@$w-vo<fVvi]a<NY6T1ed:M$fCG*[IaLV{hID";
const std::string secretKey = "D:)Q[IlAW!ahhC2ac:9*A}h:p?([4%wOTJ%JR%cs";

std::string contentOf(const std::string& path) {
    std::ostringstream content;
    content << std::ifstream(path).rdbuf();
    return content.str();
}

mode_t modeOf(const std::string& path) {
    struct stat status{};
    EXPECT_EQ(0, stat(path.c_str(), &status));
    return status.st_mode & 07777U;
}

std::vector<int> descriptorsOf(const std::string& path) {
    std::vector<int> found;
    for (const auto& descriptor : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code ignored;
        if (std::filesystem::read_symlink(descriptor, ignored) == path) {
            found.push_back(std::stoi(descriptor.path().filename()));
        }
    }
    return found;
}

class KeyFile : public testing::Test {
protected:
    /// Returns the message of `readKeyFile` for this content, without the path.
    std::string refusalOf(const std::string& content) const {
        files.write("keys", content);
        const std::string text = textThrownBy([&] { Security::readKeyFile(path); });
        const std::string begin = "Security: " + path;
        EXPECT_EQ(begin, text.substr(0, begin.size()));
        return text.substr(begin.size());
    }

    std::string readRefusal(const std::string& file) const {
        return textThrownBy([&] { Security::readKeyFile(file); });
    }

    std::string writeRefusal(const std::string& file) const {
        return textThrownBy([&] { Security::writeKeyFile(keys, file); });
    }

    std::size_t filesInFolder() const {
        const std::filesystem::directory_iterator begin(std::filesystem::path(files.pathOf("")));
        return static_cast<std::size_t>(std::distance(begin, std::filesystem::directory_iterator()));
    }

    const KeyPair keys{publicKey, secretKey};
    const KeyFiles files{};
    const std::string path = files.pathOf("keys");
};

class KeyFileFailure : public KeyFile, public testing::WithParamInterface<const char*> {};

INSTANTIATE_TEST_SUITE_P(Of, KeyFileFailure, testing::Values("mkostemp", "write", "fsync", "link"),
                         [](const auto& tested) { return std::string(tested.param); });

} // namespace

TEST_F(KeyFile, HasTwoLines) {
    Security::writeKeyFile(keys, path);
    EXPECT_EQ(publicKey + "\n" + secretKey + "\n", contentOf(path));
}

TEST_F(KeyFile, IsNeitherLeftOpenNorInherited) {
    files.write("keys", keys);
    StandIn standIn;
    std::vector<int> flags;
    standIn.after("read", [&] {
        for (const int descriptor : descriptorsOf(path)) {
            flags.push_back(fcntl(descriptor, F_GETFD));
        }
    });
    Security::readKeyFile(path);
    EXPECT_EQ((std::vector<int>{FD_CLOEXEC, FD_CLOEXEC}), flags); // read until the end
    EXPECT_TRUE(descriptorsOf(path).empty());
}

TEST_F(KeyFile, IsReadAsWritten) {
    Security::writeKeyFile(keys, path);
    const KeyPair read = Security::readKeyFile(path);
    EXPECT_EQ(publicKey, read.publicKey);
    EXPECT_EQ(secretKey, read.secretKey);
}

TEST_F(KeyFile, IsAccessibleOnlyToItsOwner) {
    const mode_t previous = umask(0);
    Security::writeKeyFile(keys, path);
    umask(previous);
    EXPECT_EQ(0600U, modeOf(path));
}

TEST_F(KeyFile, IsTheOnlyFileLeft) {
    Security::writeKeyFile(keys, path);
    EXPECT_EQ(1U, filesInFolder());
}

TEST_F(KeyFile, ReplacesNoFile) {
    files.write("keys", "other");
    EXPECT_EQ("Security: Cannot write " + path + ": File exists", writeRefusal(path));
    EXPECT_EQ("other", contentOf(path));
    EXPECT_EQ(1U, filesInFolder());
}

TEST_F(KeyFile, ReplacesNoDanglingLink) {
    std::filesystem::create_symlink("nowhere", path);
    EXPECT_EQ("Security: Cannot write " + path + ": File exists", writeRefusal(path));
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(KeyFile, IsNotWrittenWithoutFolder) {
    const std::string missing = files.pathOf("missing/keys");
    EXPECT_EQ("Security: Cannot write " + missing + ": No such file or directory", writeRefusal(missing));
}

TEST_F(KeyFile, IsNotWrittenOnAFullDevice) {
    const auto previous = std::signal(SIGXFSZ, SIG_IGN);
    rlimit limit{};
    getrlimit(RLIMIT_FSIZE, &limit);
    const rlimit small{50, limit.rlim_max}; // smaller than two keys
    setrlimit(RLIMIT_FSIZE, &small);
    const std::string text = writeRefusal(path);
    setrlimit(RLIMIT_FSIZE, &limit);
    std::signal(SIGXFSZ, previous);
    EXPECT_EQ("Security: Cannot write " + path + ": No space left on device", text);
    EXPECT_EQ(0U, filesInFolder());
}

TEST_P(KeyFileFailure, LeavesNothingBehind) {
    StandIn standIn;
    standIn.fail(GetParam(), EIO);
    EXPECT_EQ("Security: Cannot write " + path + ": Input/output error", writeRefusal(path));
    EXPECT_EQ(0U, filesInFolder());
}

TEST_F(KeyFile, RemovesNoFileOfOthers) {
    StandIn standIn;
    standIn.fail("mkostemp", EMFILE);
    files.write("keys.XXXXXX", "other");
    writeRefusal(path);
    EXPECT_EQ("other", contentOf(files.pathOf("keys.XXXXXX")));
}

TEST_F(KeyFile, IsWrittenWithoutStandardInput) {
    const int input = dup(STDIN_FILENO);
    close(STDIN_FILENO); // so that the file has this descriptor
    Security::writeKeyFile(keys, path);
    dup2(input, STDIN_FILENO);
    close(input);
    EXPECT_EQ(1U, filesInFolder());
}

TEST_F(KeyFile, IsNotWrittenForKeysThatDoNotMatch) {
    const auto refusal = [&](const KeyPair& pair) {
        return textThrownBy<std::invalid_argument>([&] { Security::writeKeyFile(pair, path); });
    };
    const std::string expected = "Security: Cannot write " + path + ": not a key pair";
    EXPECT_EQ(expected, refusal({}));
    EXPECT_EQ(expected, refusal({publicKey, ""}));
    EXPECT_EQ(expected, refusal({"", secretKey}));
    EXPECT_EQ(expected, refusal({publicKey, publicKey}));
    EXPECT_EQ(0U, filesInFolder());
}

TEST_F(KeyFile, MayLackTheLastLineEnd) {
    EXPECT_EQ(secretKey, Security::readKeyFile(files.write("keys", publicKey + "\n" + secretKey)).secretKey);
}

TEST_F(KeyFile, MayHaveWindowsLineEnds) {
    const std::string content = publicKey + "\r\n" + secretKey + "\r\n";
    EXPECT_EQ(secretKey, Security::readKeyFile(files.write("keys", content)).secretKey);
}

TEST_F(KeyFile, MayBeALink) {
    std::filesystem::create_symlink(files.write("elsewhere", keys), path);
    EXPECT_EQ(secretKey, Security::readKeyFile(path).secretKey);
}

TEST_F(KeyFile, IsRefusedWithTheLine) {
    EXPECT_EQ(":1: not a key", refusalOf(""));
    EXPECT_EQ(":1: not a key", refusalOf("\n" + publicKey + "\n" + secretKey));
    EXPECT_EQ(":1: not a key", refusalOf(publicKey + " \n" + secretKey));
    EXPECT_EQ(":2: not a key", refusalOf(publicKey + "\n"));
    EXPECT_EQ(":2: not a key", refusalOf(publicKey + "\n" + secretKey.substr(1)));
    EXPECT_EQ(":2: not a key", refusalOf(publicKey + "\n" + secretKey + "x"));
    EXPECT_EQ(":3: more than two lines", refusalOf(publicKey + "\n" + secretKey + "\n\n"));
}

TEST_F(KeyFile, IsRefusedWithKeysThatDoNotMatch) {
    EXPECT_EQ(":2: the secret key does not belong to the public key", refusalOf(secretKey + "\n" + publicKey));
}

TEST_F(KeyFile, IsRefusedWithAnInvalidKey) {
    EXPECT_EQ(":1: not a key", refusalOf(std::string(40, '"') + "\n"));                    // not in the alphabet
    EXPECT_EQ(":1: not a key", refusalOf(std::string(40, '#') + "\n"));                    // more than 32 bits
    EXPECT_EQ(":1: not a key", refusalOf(publicKey.substr(0, 35) + std::string(5, '\0'))); // a shorter text to C
}

TEST_F(KeyFile, IsRefusedWhenOthersCanAccessIt) {
    for (const mode_t other : {0001U, 0002U, 0004U, 0010U, 0020U, 0040U}) {
        chmod(files.write("keys", keys).c_str(), S_IRUSR | S_IWUSR | other);
        EXPECT_EQ("Security: Cannot read " + path + ": other users can access it", readRefusal(path)) << other;
    }
}

TEST_F(KeyFile, IsRefusedWhenItBelongsToAnotherUser) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can give files away";
    }
    constexpr uid_t nobody = 65534;
    ASSERT_EQ(0, chown(files.write("keys", keys).c_str(), nobody, nobody));
    EXPECT_EQ("Security: Cannot read " + path + ": it belongs to another user", readRefusal(path));
}

TEST_F(KeyFile, MayBelongToRoot) {
    constexpr uid_t nobody = 65534;
    const bool isRoot = geteuid() == 0;
    ASSERT_TRUE(!isRoot || seteuid(nobody) == 0);
    EXPECT_EQ("Security: Cannot read /etc/passwd: other users can access it", readRefusal("/etc/passwd"));
    ASSERT_TRUE(!isRoot || seteuid(0) == 0);
}

TEST_F(KeyFile, IsRefusedWhenItIsNoFile) {
    ASSERT_EQ(0, mkfifo(path.c_str(), S_IRUSR | S_IWUSR));
    EXPECT_EQ("Security: Cannot read " + path + ": not a regular file", readRefusal(path));
    EXPECT_EQ("Security: Cannot read /: not a regular file", readRefusal("/"));
}

TEST_F(KeyFile, IsRefusedWhenItIsHuge) {
    std::filesystem::resize_file(files.write("keys", keys), 16 * 1024 * 1024);
    EXPECT_EQ("Security: " + path + ":3: more than two lines", readRefusal(path));
    for (const std::uintmax_t size : {16777217ULL, 3000000000ULL}) {
        std::filesystem::resize_file(path, size);
        EXPECT_EQ("Security: Cannot read " + path + ": more than 16 MiB", readRefusal(path)) << size;
    }
}

TEST_F(KeyFile, IsRefusedWhenItIsMissing) {
    EXPECT_EQ("Security: Cannot read " + path + ": No such file or directory", readRefusal(path));
}

TEST_F(KeyFile, IsRefusedWhenItCannotBeRead) {
    files.write("keys", keys);
    for (const char* const function : {"open", "fstat", "read"}) {
        StandIn standIn;
        standIn.fail(function, EIO);
        EXPECT_EQ("Security: Cannot read " + path + ": Input/output error", readRefusal(path)) << function;
    }
}

TEST_F(KeyFile, IsRefusedWithoutCurve) {
    files.write("keys", keys);
    StandIn standIn;
    standIn.fail("zmq_curve_public", ENOTSUP);
    EXPECT_EQ("Security: " + path + ":2: the secret key does not belong to the public key", readRefusal(path));
}

TEST_F(KeyFile, IsReadInParts) {
    files.write("keys", keys);
    StandIn standIn;
    standIn.after("fstat", [&] { std::filesystem::resize_file(path, publicKey.size() + 1); });
    standIn.after("read", [&] { files.write("keys", publicKey + "\n" + secretKey + "\nadded later"); });
    EXPECT_EQ(secretKey, Security::readKeyFile(path).secretKey);
}

TEST_F(KeyFile, IsReadUntilItsEnd) {
    files.write("keys", publicKey + "\n" + secretKey + "\nremoved later");
    StandIn standIn;
    standIn.after("fstat", [&] { files.write("keys", keys); });
    EXPECT_EQ(secretKey, Security::readKeyFile(path).secretKey);
}

} // namespace rk::tests
