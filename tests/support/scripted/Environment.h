// Environment variables of a test.
#pragma once

#include <map>
#include <optional>
#include <string>

namespace scripted {

// Changes are undone by `restore`. For one thread, while no other reads the environment.
class Environment {
 public:
  void set(const std::string& name, const std::string& value);
  void unset(const std::string& name);
  // Gives every variable that was changed here its first value back.
  void restore();

 private:
  void _keep(const std::string& name);

  std::map<std::string, std::optional<std::string>> m_before;
};

}  // namespace scripted
