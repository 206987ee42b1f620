// A stored password is the tag, then unpadded URL-safe base64 of nonce and secretbox: always longer than the clear
// text, which can therefore be written in place of it.
#include "ZaroRuntime/StoredPassword.h"

#include <fcntl.h>
#include <sodium.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <vector>

#include "ZaroRuntime/RuntimeError.h"
#include "common/FileText.h"
#include "common/UniqueFd.h"

namespace zaroruntime {

namespace {

constexpr char kTag[] = "zaro-secretbox-1:";
constexpr std::size_t kTagLength = sizeof kTag - 1;
constexpr std::size_t kLongestPassword = 255;
constexpr int kBase64 = sodium_base64_VARIANT_URLSAFE_NO_PADDING;

using Bytes = std::vector<unsigned char>;

void startSodium() {
  if (sodium_init() < 0) {
    throw RuntimeError("libsodium cannot be initialised");
  }
}

// Key bytes that are wiped when they go.
class Key {
 public:
  Key() : m_bytes(crypto_secretbox_KEYBYTES) {}
  ~Key() { sodium_memzero(m_bytes.data(), m_bytes.size()); }
  Key(const Key&) = delete;
  Key& operator=(const Key&) = delete;
  unsigned char* data() { return m_bytes.data(); }
  std::size_t size() const { return m_bytes.size(); }

 private:
  Bytes m_bytes;
};

void readKey(const std::string& path, Key& key) {
  const UniqueFd fd(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK));
  if (!fd.isOpen()) {
    throwFileError(path, errno == ELOOP ? "the key file must not be a link" : "cannot open the key file",
                   FailureKind::Configuration);
  }
  struct stat status = {};
  if (::fstat(fd.get(), &status) != 0) {
    throwFileError(path, "cannot read the key file");
  }
  if (!S_ISREG(status.st_mode)) {
    throw RuntimeError(path + ": the key file is not a regular file", FailureKind::Configuration);
  }
  if (status.st_uid != ::geteuid() && status.st_uid != 0) {
    throw RuntimeError(path + ": the key file belongs to neither this user nor root", FailureKind::Refused);
  }
  if ((status.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
    throw RuntimeError(path + ": the key file is open to group or others (chmod 600 " + path + ")",
                       FailureKind::Configuration);
  }
  const bool sized = status.st_size == static_cast<off_t>(key.size());
  if (!sized || ::read(fd.get(), key.data(), key.size()) != static_cast<ssize_t>(key.size())) {
    throw RuntimeError(path + ": the key file does not hold " + std::to_string(key.size()) + " bytes",
                       FailureKind::Configuration);
  }
}

}  // namespace

void createSecretKey(const std::string& keyPath) {
  startSodium();
  Key key;
  randombytes_buf(key.data(), key.size());
  const UniqueFd fd(::open(keyPath.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
  if (!fd.isOpen()) {
    throwFileError(keyPath, "cannot create the key file", FailureKind::Creation);
  }
  if (::write(fd.get(), key.data(), key.size()) != static_cast<ssize_t>(key.size()) || ::fsync(fd.get()) != 0) {
    throwFileError(keyPath, "cannot write the key file");
  }
}

void checkSecretKey(const std::string& keyPath) {
  Key key;
  readKey(keyPath, key);
}

std::string encryptPassword(const std::string& clear, const std::string& keyPath) {
  startSodium();
  if (clear.size() > kLongestPassword) {
    throw RuntimeError("the password is longer than " + std::to_string(kLongestPassword) + " bytes", FailureKind::Data);
  }
  Key key;
  readKey(keyPath, key);
  Bytes box(crypto_secretbox_NONCEBYTES + crypto_secretbox_MACBYTES + clear.size());
  randombytes_buf(box.data(), crypto_secretbox_NONCEBYTES);
  crypto_secretbox_easy(box.data() + crypto_secretbox_NONCEBYTES, reinterpret_cast<const unsigned char*>(clear.data()),
                        clear.size(), box.data(), key.data());
  std::string text(sodium_base64_encoded_len(box.size(), kBase64), '\0');
  sodium_bin2base64(text.data(), text.size(), box.data(), box.size(), kBase64);
  text.pop_back();  // the terminator
  return kTag + text;
}

bool isEncryptedPassword(const std::string& stored) {
  return stored.compare(0, kTagLength, kTag) == 0;
}

std::string decryptPassword(const std::string& stored, const std::string& keyPath) {
  startSodium();
  if (!isEncryptedPassword(stored)) {
    throw RuntimeError("the stored password is not an encrypted one", FailureKind::Configuration);
  }
  Bytes box(stored.size());
  std::size_t length = 0;
  const bool decoded = sodium_base642bin(box.data(), box.size(), stored.data() + kTagLength, stored.size() - kTagLength,
                                         nullptr, &length, nullptr, kBase64) == 0;
  if (!decoded || length < crypto_secretbox_NONCEBYTES + crypto_secretbox_MACBYTES) {
    throw RuntimeError("the stored password is damaged (set it again with zaroctl password)", FailureKind::Configuration);
  }
  Key key;
  readKey(keyPath, key);
  std::string clear(length - crypto_secretbox_NONCEBYTES - crypto_secretbox_MACBYTES, '\0');
  if (crypto_secretbox_open_easy(reinterpret_cast<unsigned char*>(clear.data()), box.data() + crypto_secretbox_NONCEBYTES,
                                 length - crypto_secretbox_NONCEBYTES, box.data(), key.data()) != 0) {
    throw RuntimeError(
        "the stored password does not open under the key " + keyPath + " (set it again with zaroctl password)",
        FailureKind::Configuration);
  }
  return clear;
}

}  // namespace zaroruntime
