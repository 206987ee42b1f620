#include "delegation/PolicyRequest.h"

std::optional<PolicyRequest> PolicyRequest::takeFrom(std::string& received) {
  const std::string emptyLine = "\n\n";
  const std::size_t end = received.find(emptyLine);
  if (end == std::string::npos) {
    return std::nullopt;
  }
  PolicyRequest request;
  for (std::size_t begin = 0; begin <= end;) {
    const std::size_t lineEnd = received.find('\n', begin);
    const std::string line = received.substr(begin, lineEnd - begin);
    if (const std::size_t sign = line.find('='); sign != std::string::npos) {
      request.m_attributes[line.substr(0, sign)] = line.substr(sign + 1);
    }
    begin = lineEnd + 1;
  }
  received.erase(0, end + emptyLine.size());
  return request;
}

std::string PolicyRequest::value(const char* name) const {
  const auto found = m_attributes.find(name);
  return found != m_attributes.end() ? found->second : "";
}

std::string policyAnswer(const std::string& action) {
  return "action=" + action + "\n\n";
}
