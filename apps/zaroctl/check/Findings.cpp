#include "check/Findings.h"

#include <exception>

void Findings::wrong(const std::string& subject, const std::string& finding) {
  _add("wrong", subject, finding);
  m_wrong = true;
}

bool Findings::check(const std::string& subject, const std::function<std::string()>& look) {
  try {
    ok(subject, look());
    return true;
  } catch (const std::exception& failure) {
    wrong(subject, failure.what());
    return false;
  }
}

void Findings::_add(const char* state, const std::string& subject, const std::string& finding) {
  m_list.push_back({{"state", state}, {"subject", subject}, {"finding", finding}});
}
