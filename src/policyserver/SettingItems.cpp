#include "policyserver/SettingItems.h"

#include <algorithm>

#include "SettingsText.h"
#include "policyserver/LeadingNumber.h"

namespace ZARO {
namespace settings {

namespace {

// ASCII letters alone have two cases here, whatever the locale.
bool equalsIgnoringCase(const std::string& text, const std::string& word) {
  const auto lower = [](char sign) { return sign >= 'A' && sign <= 'Z' ? static_cast<char>(sign - 'A' + 'a') : sign; };
  return std::equal(text.begin(), text.end(), word.begin(), word.end(),
                    [&](char one, char other) { return lower(one) == lower(other); });
}

}  // namespace

const std::string* find(const Items& items, const char* key) {
  const auto found = items.find(key);
  return found != items.end() ? &found->second : nullptr;
}

bool isKeepAlive(const std::string& text) {
  return equalsIgnoringCase(text, "yes");
}

ZaroPolicyServerInterface::Protocol protocolOf(const std::string& text) {
  return equalsIgnoringCase(text, "https") ? ZaroPolicyServerInterface::HTTPS : ZaroPolicyServerInterface::HTTP;
}

}  // namespace settings
}  // namespace ZARO

ZaroPolicyServerInterface::Reading ZaroPolicyServerInterface::readNumber(const NumberRule& rule,
                                                                         const std::string& text, unsigned int& value) {
  const bool isNumber = rule.isPort ? isValidPort(text.c_str()) : isNum(text.c_str());
  if (!isNumber) {
    value = rule.fallBack.value_or(value);
    return NotANumber;
  }
  if (text.size() > rule.longest) {
    value = rule.greatest;
    return TooLong;
  }
  const unsigned int number = ZARO::settings::leadingNumber<unsigned int>(text.c_str());
  value = std::clamp(number, rule.least, rule.greatest);
  if (value == number) {
    return AsStored;
  }
  return number < rule.least ? TooLow : TooHigh;
}
