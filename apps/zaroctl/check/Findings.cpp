#include "check/Findings.h"

#include <exception>

using zaroruntime::FailureKind;

void Findings::wrong(const std::string& subject, const std::string& finding, FailureKind kind) {
  _add("wrong", subject, finding);
  m_code = m_code == ExitCode::Found ? exitCodeOf(kind) : m_code;
}

void Findings::failed(const std::string& subject, const zaroruntime::RuntimeError& failure) {
  if (m_code == ExitCode::Found) {
    wrong(subject, failure.what(), failure.kind());
  }
}

bool Findings::check(const std::string& subject, const std::function<std::string()>& look) {
  try {
    ok(subject, look());
    return true;
  } catch (const zaroruntime::RuntimeError& failure) {
    wrong(subject, failure.what(), failure.kind() == FailureKind::Other ? FailureKind::Configuration : failure.kind());
    return false;
  } catch (const std::exception& failure) {
    wrong(subject, failure.what());
    return false;
  }
}

void Findings::_add(const char* state, const std::string& subject, const std::string& finding) {
  m_list.push_back({{"state", state}, {"subject", subject}, {"finding", finding}});
}
