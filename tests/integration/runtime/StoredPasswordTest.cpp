// Passwords are encrypted and come back, and what was tampered with does not.
#include "ZaroRuntime/StoredPassword.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <vector>

#include "NewDecryptStr.h"
#include "ZaroRuntime/RuntimeError.h"
#include "support/TemporaryDirectory.h"

namespace {

using testing::HasSubstr;
using zaroruntime::checkSecretKey;
using zaroruntime::createSecretKey;
using zaroruntime::decryptPassword;
using zaroruntime::encryptPassword;
using zaroruntime::isEncryptedPassword;
using zarotest::TemporaryDirectory;

class StoredPassword : public testing::Test {
 protected:
  StoredPassword() : m_key(m_directory.path("config/secret.key")) {
    std::filesystem::create_directory(m_directory.path("config"));
    createSecretKey(m_key);
    setenv("ZARO_HOME", m_directory.path().c_str(), 1);
  }
  ~StoredPassword() override { unsetenv("ZARO_HOME"); }

  std::string keyRefusal() {
    try {
      checkSecretKey(m_key);
    } catch (const zaroruntime::RuntimeError& failure) {
      return failure.what();
    }
    return "not refused";
  }

  // What `NewDecryptStr` makes of a text, and its answer.
  std::pair<int, std::string> decrypted(const std::string& stored) {
    std::vector<char> text(stored.begin(), stored.end());
    text.push_back('\0');
    const int answer = NewDecryptStr(text.data());
    return {answer, text.data()};
  }

  TemporaryDirectory m_directory;
  std::string m_key;
};

TEST_F(StoredPassword, everyPasswordComesBack) {
  const std::string allBytes = [] {
    std::string bytes;
    for (int byte = 1; byte < 256; ++byte) {
      bytes += static_cast<char>(byte);
    }
    return bytes;
  }();
  for (const std::string& clear : {std::string(), std::string("p"), std::string("p;{w}'\"=%d漢"), allBytes}) {
    const std::string stored = encryptPassword(clear, m_key);
    EXPECT_GT(stored.size(), clear.size());
    EXPECT_EQ(decryptPassword(stored, m_key), clear);
    EXPECT_EQ(decrypted(stored), (std::pair<int, std::string>(1, clear)));
  }
}

TEST_F(StoredPassword, samePasswordIsStoredDifferentlyEachTime) {
  EXPECT_NE(encryptPassword("same", m_key), encryptPassword("same", m_key));
}

TEST_F(StoredPassword, storedTextIsPlainEnoughForAnIniFile) {
  const std::string stored = encryptPassword(std::string(255, '\xff'), m_key);
  EXPECT_TRUE(isEncryptedPassword(stored));
  EXPECT_EQ(stored.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-_:"),
            std::string::npos);
}

TEST_F(StoredPassword, overlongPasswordIsRefused) {
  EXPECT_THROW(encryptPassword(std::string(256, 'x'), m_key), zaroruntime::RuntimeError);
}

TEST_F(StoredPassword, clearTextIsLeftAlone) {
  EXPECT_EQ(decrypted("plain"), (std::pair<int, std::string>(0, "plain")));
  EXPECT_EQ(decrypted(""), (std::pair<int, std::string>(0, "")));
  EXPECT_EQ(NewDecryptStr(nullptr), 0);
}

TEST_F(StoredPassword, damagedTextIsLeftAloneAndLogged) {
  const std::string stored = encryptPassword("secret", m_key);
  std::string changed = stored;
  changed.back() = changed.back() == 'A' ? 'B' : 'A';
  std::string foreign = stored;
  foreign[20] = '!';
  const std::string cut = stored.substr(0, 30);
  for (const std::string& text : {changed, foreign, cut, std::string("zaro-secretbox-1:")}) {
    testing::internal::CaptureStderr();
    EXPECT_EQ(decrypted(text), (std::pair<int, std::string>(0, text)));
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("NewDecryptStr: the stored password"));
  }
}

TEST_F(StoredPassword, otherKeyDoesNotOpenIt) {
  const std::string stored = encryptPassword("secret", m_key);
  std::filesystem::remove(m_key);
  createSecretKey(m_key);
  EXPECT_THROW(decryptPassword(stored, m_key), zaroruntime::RuntimeError);
}

TEST_F(StoredPassword, newKeyIsPrivateAndNeverReplaced) {
  struct stat status = {};
  ASSERT_EQ(stat(m_key.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0600u);
  EXPECT_EQ(status.st_size, 32);
  EXPECT_THROW(createSecretKey(m_key), zaroruntime::RuntimeError);
}

TEST_F(StoredPassword, unfitKeyFilesAreRefused) {
  EXPECT_EQ(keyRefusal(), "not refused");
  chmod(m_key.c_str(), 0640);
  EXPECT_THAT(keyRefusal(), HasSubstr("open to group or others"));
  chmod(m_key.c_str(), 0600);

  std::filesystem::rename(m_key, m_key + ".real");
  std::filesystem::create_symlink(m_key + ".real", m_key);
  EXPECT_THAT(keyRefusal(), HasSubstr("must not be a link"));
  std::filesystem::remove(m_key);
  EXPECT_THAT(keyRefusal(), HasSubstr("cannot open the key file: No such file"));

  for (const std::size_t size : {0u, 31u, 33u}) {
    m_directory.write("config/secret.key", std::string(size, 'k'), 0600);
    EXPECT_THAT(keyRefusal(), HasSubstr("does not hold 32 bytes"));
  }
  std::filesystem::remove(m_key);
  std::filesystem::create_directory(m_key);
  EXPECT_THAT(keyRefusal(), HasSubstr("not a regular file"));
}

}  // namespace
