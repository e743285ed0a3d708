// The key files of machines that connect over a network.
#include <host/keys.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <stdexcept>
#include <string>
#include <sys/stat.h>

using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace {

class Keys : public testing::Test {
protected:
    Keys() {
        char name[] = "/tmp/keys-XXXXXX";
        folder = mkdtemp(name);
        file = folder + "/machine.key";
    }
    ~Keys() override { std::filesystem::remove_all(folder); }

    void write(const std::string& text) {
        std::ofstream(file) << text;
        std::filesystem::permissions(file, std::filesystem::perms(0600));
    }
    // The error for the key file. It must begin with the file's name.
    std::string error() const {
        try {
            host::readKeys(file);
        } catch (const std::runtime_error& error) {
            EXPECT_THAT(error.what(), StartsWith("key file " + file));
            return error.what();
        }
        return "nothing";
    }

    std::string folder, file;
    const host::KeyPair keys = host::makeKeys();
};

TEST_F(Keys, AreReadAsTheyWereWritten) {
    host::writeKeys(file, keys);
    EXPECT_EQ(host::readKeys(file).publicKey, keys.publicKey);
    EXPECT_EQ(host::readKeys(file).secretKey, keys.secretKey);
}

TEST_F(Keys, DifferEachTime) {
    EXPECT_NE(host::makeKeys().secretKey, keys.secretKey);
    EXPECT_NE(host::makeKeys().publicKey, keys.publicKey);
}

TEST_F(Keys, AreReadableByTheirOwnerOnlyWhateverTheUmask) {
    const mode_t mask = umask(0);
    host::writeKeys(file, keys);
    umask(mask);
    struct stat status {};
    ASSERT_EQ(stat(file.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0600U);
}

TEST_F(Keys, NeverReplaceAFile) {
    write("existing content");
    EXPECT_THROW(host::writeKeys(file, keys), std::runtime_error);
    std::ifstream there(file);
    EXPECT_EQ(std::string(std::istreambuf_iterator(there), {}), "existing content");
}

TEST_F(Keys, AreNotWrittenToAMissingFolder) {
    EXPECT_THROW(host::writeKeys(folder + "/none/machine.key", keys), std::runtime_error);
}

TEST_F(Keys, AreRejectedWhenOthersMayReadThem) {
    host::writeKeys(file, keys);
    for (const unsigned mode : {0640U, 0604U, 0620U, 0602U, 0601U}) {
        std::filesystem::permissions(file, std::filesystem::perms(mode));
        EXPECT_THAT(error(), EndsWith(": open to other users (expected: mode 0600)"));
    }
}

TEST_F(Keys, AreRejectedWhenTheirFileIsMissingOrAFolder) {
    EXPECT_THAT(error(), EndsWith(": No such file or directory"));
    std::filesystem::create_directory(file);
    EXPECT_THAT(error(), EndsWith(": not a file"));
}

TEST_F(Keys, AreRejectedWhenTheyDoNotMatch) {
    host::writeKeys(file, {host::makeKeys().publicKey, keys.secretKey});
    EXPECT_THAT(error(), EndsWith(": its keys are not a pair"));
}

TEST_F(Keys, AreRejectedWhenOneIsMissingOrMalformed) {
    write("public = '" + keys.publicKey + "'\n");
    EXPECT_THAT(error(), EndsWith(": has no \"secret\" key"));
    write("secret = '" + keys.secretKey + "'\n");
    EXPECT_THAT(error(), EndsWith(": has no \"public\" key"));
    write("public = 'short'\nsecret = 'too'\n");
    EXPECT_THAT(error(), EndsWith(": its keys are not a pair"));
    write("public = 1\nsecret = 2\n");
    EXPECT_THAT(error(), EndsWith(": has no \"public\" key"));
}

TEST_F(Keys, AreNotPrintedWhenTheirFileIsWrong) {
    write("# mine\npublic = '" + keys.publicKey + "'\nsecret = " + keys.secretKey + "\n");
    EXPECT_THAT(error(), EndsWith(":3: not TOML"));
    EXPECT_THAT(error(), Not(HasSubstr(keys.secretKey)));
    write(std::string(5000, '#'));
    EXPECT_THAT(error(), EndsWith(": too long for a pair of keys"));
}

TEST_F(Keys, AreRejectedWithAdviceWhenOfAnEarlierVersion) {
    write(
        "public = 'rq:rM>}U?@Lns47E1%kR.o@n%FcmmsL/@{H8]yf7'\n"
        "secret = 'JTKVSB%%)wK0E.X)V>+}o?pNmC{O&4W4b!Ni{Lh6'\n");
    EXPECT_THAT(error(), EndsWith(": keys of an earlier version, which cannot be used any more: move the file away, "
                                  "make a new pair with 'tvctl keygen " +
                                  file + "' and give its public key to the other hosts"));
    try {
        host::checkKey("rq:rM>}U?@Lns47E1%kR.o@n%FcmmsL/@{H8]yf7", "keys.clients");
        ADD_FAILURE() << "was accepted as a key";
    } catch (const std::runtime_error& error) {
        EXPECT_THAT(error.what(), EndsWith(" (that of an earlier version? see tvctl keygen)"));
    }
}

TEST_F(Keys, AreCheckedForTheirFormat) {
    EXPECT_NO_THROW(host::checkKey(keys.publicKey, "a key"));
    for (const std::string& wrong :
         {std::string(), keys.publicKey.substr(1), keys.publicKey + "x", std::string(44, ' '), std::string(44, '~'),
          std::string(44, '='), keys.publicKey.substr(1) + ' ', std::string(40, 'a')})
        EXPECT_THROW(host::checkKey(wrong, "a key"), std::runtime_error) << wrong;
}

} // namespace
