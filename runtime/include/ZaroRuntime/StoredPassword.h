// Passwords at rest: libsodium's secretbox under the installation's key. `NewDecryptStr` reads what this writes.
#pragma once

#include <string>

namespace zaroruntime {

// Writes a new random key to a file that must not exist yet, mode 0600. Throws RuntimeError.
void createSecretKey(const std::string& keyPath);

// Throws RuntimeError saying what is wrong with the key file: missing, a link, not ours, readable by others, no key.
void checkSecretKey(const std::string& keyPath);

// The text to store for a password of at most 255 bytes. Throws RuntimeError.
std::string encryptPassword(const std::string& clear, const std::string& keyPath);

// True when a stored text is one that `encryptPassword` made; anything else is a password in clear.
bool isEncryptedPassword(const std::string& stored);

// The password of a stored text. Throws RuntimeError when it is not one of ours or does not open under this key.
std::string decryptPassword(const std::string& stored, const std::string& keyPath);

}  // namespace zaroruntime
