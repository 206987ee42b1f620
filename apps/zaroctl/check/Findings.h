// What `check` found, in the order in which it looked.
#pragma once

#include <functional>
#include <string>

#include "console/Output.h"

class Findings {
 public:
  void ok(const std::string& subject, const std::string& finding) { _add("ok", subject, finding); }
  void wrong(const std::string& subject, const std::string& finding);

  // Runs one check, which answers what it found in order, or throws what is wrong. False when it threw.
  bool check(const std::string& subject, const std::function<std::string()>& look);

  bool anyWrong() const { return m_wrong; }
  // Records of state, subject and finding.
  const Json& list() const { return m_list; }

 private:
  void _add(const char* state, const std::string& subject, const std::string& finding);

  Json m_list = Json::array();
  bool m_wrong = false;
};
