#include "scripted/Environment.h"

#include <cstdlib>

namespace scripted {

void Environment::set(const std::string& name, const std::string& value) {
  _keep(name);
  ::setenv(name.c_str(), value.c_str(), 1);
}

void Environment::unset(const std::string& name) {
  _keep(name);
  ::unsetenv(name.c_str());
}

void Environment::restore() {
  for (const auto& [name, value] : m_before) {
    if (value) {
      ::setenv(name.c_str(), value->c_str(), 1);
    } else {
      ::unsetenv(name.c_str());
    }
  }
  m_before.clear();
}

void Environment::_keep(const std::string& name) {
  const char* value = std::getenv(name.c_str());
  m_before.emplace(name, value != nullptr ? std::optional<std::string>(value) : std::nullopt);
}

}  // namespace scripted
