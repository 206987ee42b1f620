// What `check` found, in the order in which it looked.
#pragma once

#include <functional>
#include <string>

#include "ZaroRuntime/RuntimeError.h"
#include "console/ExitCode.h"
#include "console/Output.h"

class Findings {
 public:
  void ok(const std::string& subject, const std::string& finding) { _add("ok", subject, finding); }
  void wrong(const std::string& subject, const std::string& finding,
             zaroruntime::FailureKind kind = zaroruntime::FailureKind::Configuration);

  // The failure of something that an earlier check has looked at too: told unless anything was found wrong already.
  void failed(const std::string& subject, const zaroruntime::RuntimeError& failure);

  // Runs one check, which answers what it found in order, or throws what is wrong. False when it threw.
  bool check(const std::string& subject, const std::function<std::string()>& look);

  // That of the first thing that is wrong: what follows may stem from it.
  ExitCode exitCode() const { return m_code; }
  // Records of state, subject and finding.
  const Json& list() const { return m_list; }

 private:
  void _add(const char* state, const std::string& subject, const std::string& finding);

  Json m_list = Json::array();
  ExitCode m_code = ExitCode::Found;
};
