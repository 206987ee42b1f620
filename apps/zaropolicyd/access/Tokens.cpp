#include "access/Tokens.h"

#include <openssl/crypto.h>
#include <openssl/sha.h>

#include <sstream>

#include "ZaroRuntime/RuntimeError.h"
#include "http/RequestFields.h"

using zaroruntime::FailureKind;
using zaroruntime::RuntimeError;

Tokens::Tokens(std::string_view lines) {
  std::istringstream all{std::string(lines)};
  int number = 0;
  for (std::string line; std::getline(all, line);) {
    ++number;
    line.erase(line.find_last_not_of(" \t\r") + 1);
    if (line.empty()) {
      continue;
    }
    if (!isToken(line)) {
      throw RuntimeError("line " + std::to_string(number) + " is no token: letters, digits and -._~+/ make one",
                         FailureKind::Configuration);
    }
    m_digests.push_back(_digestOf(line));
  }
  if (m_digests.empty()) {
    throw RuntimeError("there is no token in it", FailureKind::Configuration);
  }
}

bool Tokens::contains(std::string_view token) const {
  const Digest digest = _digestOf(token);
  bool found = false;
  for (const Digest& known : m_digests) {
    found |= CRYPTO_memcmp(known.data(), digest.data(), digest.size()) == 0;
  }
  return found;
}

Tokens::Digest Tokens::_digestOf(std::string_view token) {
  Digest digest = {};
  SHA256(reinterpret_cast<const unsigned char*>(token.data()), token.size(), digest.data());
  return digest;
}
