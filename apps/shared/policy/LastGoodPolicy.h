// The last policy that decided, kept on disk for a start without its source.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "policy/MailPolicy.h"

class LastGoodPolicy {
 public:
  // `directory` is made when something is kept. Relative to nothing: an absolute path.
  explicit LastGoodPolicy(std::string directory) : m_directory(std::move(directory)) {}

  // Replaces what is kept, as a whole or not at all. Throws RuntimeError.
  void save(const MailPolicy& policy) const;
  // The same with a snapshot that is there as a text. It is not looked at.
  void saveText(std::string_view snapshot) const;
  // Nothing when nothing is kept. Throws RuntimeError for a file that cannot be read or is not whole.
  std::optional<MailPolicy> load() const;
  // The text that is kept, not looked at. Nothing when nothing is kept. Throws RuntimeError.
  std::optional<std::string> text() const;

 private:
  std::string _path() const;

  std::string m_directory;
};
