// Whether an address falls under one wildcard group, by the two texts alone.
#include <cstring>

#include "EntityUtils.h"
#include "PolicyLog.h"
#include "util/LetterCase.h"

namespace {

constexpr char kAt = '@';
constexpr char kWildcard = '*';

enum class Answer { No, Yes, MissingAt };

bool isSame(char one, char other) {
  return ZARO::loweredByLocale(one) == ZARO::loweredByLocale(other);
}

// Forwards to the "@" of both texts. Yes: they reached it together.
Answer compareLocalParts(const char* group, const char* address) {
  for (;; ++group, ++address) {
    if (*group == '\0' || *address == '\0') {
      return Answer::MissingAt;
    }
    if (*group == kAt || *address == kAt) {
      return *group == *address ? Answer::Yes : Answer::No;
    }
    if (!isSame(*group, *address)) {
      return Answer::No;
    }
  }
}

// Backwards from the ends to the "@" of either text, or to a wildcard of the group. `group` is not empty.
Answer compareDomains(const char* group, const char* address) {
  if (*address == '\0') {
    return Answer::MissingAt;
  }
  const char* inGroup = group + std::strlen(group) - 1;
  const char* inAddress = address + std::strlen(address) - 1;
  for (;; --inGroup, --inAddress) {
    if (*inGroup == kAt || *inAddress == kAt || inGroup == group) {
      if (inGroup == group || inAddress == address) {
        return Answer::MissingAt;
      }
      return *inGroup == *inAddress ? Answer::Yes : Answer::No;
    }
    if (inAddress == address) {
      return Answer::MissingAt;
    }
    if (*inGroup == kWildcard) {
      return Answer::Yes;
    }
    if (!isSame(*inGroup, *inAddress)) {
      return Answer::No;
    }
  }
}

Answer compare(const char* group, const char* address) {
  if (*group != kWildcard) {  // which stands for the whole local part
    const Answer answer = compareLocalParts(group, address);
    if (answer != Answer::Yes) {
      return answer;
    }
  }
  return compareDomains(group, address);
}

}  // namespace

bool EntityUtils::MemberOfWildCardGroup(const char* group, const char* emailAddress) {
  if (group == nullptr || emailAddress == nullptr) {
    PolicyLog::log(LogLevel::Error, "[ERROR]EntityUtils::MemberOfWildCardGroup: NULL group or email addr.");
    return true;
  }
  if (std::strcmp(group, "*") == 0 || std::strcmp(group, "*@*") == 0) {
    return true;
  }
  const Answer answer = compare(group, emailAddress);
  if (answer == Answer::MissingAt) {
    PolicyLog::log(LogLevel::Warning, "[WARNING]EntityUtils::MemberOfWildCardGroup: missing @ in %s or %s",
                   emailAddress, group);
  }
  return answer == Answer::Yes;
}
