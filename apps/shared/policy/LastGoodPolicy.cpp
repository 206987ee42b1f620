#include "policy/LastGoodPolicy.h"

#include <cerrno>
#include <fstream>
#include <sstream>

#include "ZaroRuntime/RuntimeError.h"
#include "installation/AtomicFile.h"
#include "installation/Files.h"
#include "policy/PolicySnapshot.h"

namespace {

// Nothing when there is no such file.
std::optional<std::ifstream> openToRead(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (file) {
    return file;
  }
  if (errno != ENOENT) {
    throwErrno(path, "cannot open");
  }
  return std::nullopt;
}

}  // namespace

void LastGoodPolicy::save(const MailPolicy& policy) const {
  AtomicFile file(_path());
  writeSnapshot(policy, [&](std::string_view text) { file.append(text); });
  file.putInPlace();
}

void LastGoodPolicy::saveText(std::string_view snapshot) const {
  AtomicFile file(_path());
  file.append(snapshot);
  file.putInPlace();
}

std::optional<std::string> LastGoodPolicy::text() const {
  const std::optional<std::ifstream> file = openToRead(_path());
  if (!file) {
    return std::nullopt;
  }
  std::ostringstream text;
  text << file->rdbuf();
  return text.str();
}

std::optional<MailPolicy> LastGoodPolicy::load() const {
  std::optional<std::ifstream> file = openToRead(_path());
  if (!file) {
    return std::nullopt;
  }
  try {
    return readSnapshot([&](std::string& line) { return static_cast<bool>(std::getline(*file, line)); });
  } catch (const zaroruntime::RuntimeError& refusal) {
    throw zaroruntime::RuntimeError(_path() + ": " + refusal.what(), refusal.kind());
  }
}

std::string LastGoodPolicy::_path() const {
  return m_directory + "/policy.snapshot";
}
