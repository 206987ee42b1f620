#include <cstring>

#include "KxResbundle.h"
#include "PolicyLog.h"
#include "ZaroAction.h"

namespace {

constexpr char kSeparator[] = "; ";
constexpr int kSeparatorLength = 2;
constexpr int kSet = '1';

// In the order of the display string: hand-off is shown after Bcc. Positions 2, 14 and 16 mean nothing. Position 17
// lies behind the last character and is never set; its key belongs to the resource files all the same.
// clang-format off
constexpr ZaroAction::TokenPosition kTokens[] = {
    {0,  "Delete"},
    {1,  "Quarantine"},
    {3,  "Archive"},
    {5,  "Readdress"},
    {6,  "Stamped"},
    {7,  "DeleteAttachment"},
    {8,  "SubjectTagging"},
    {9,  "Postpone"},
    {10, "Notify"},
    {11, "VirusClean"},
    {12, "Bcc"},
    {4,  "Handoff"},
    {17, "Veridock"},
    {13, "InsertXHeaderTag"},
    {15, "IBEEncrypt"},
};
// clang-format on

constexpr bool insideBitMapOrItsEnd() {
  for (const ZaroAction::TokenPosition& token : kTokens) {
    if (token.position < 0 || token.position > ZaroAction::kActionBitMapLength) {
      return false;
    }
  }
  return true;
}
static_assert(insideBitMapOrItsEnd(), "no position is read beyond the terminating NUL");

void logInvalidBitMap(const char* bitMap, std::size_t length) {
  // The details go unused, for want of a conversion in the format: log watchers know the line as the first text alone.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-extra-args"
  PolicyLog::log(LogLevel::Error, "ZaroAction::CreateActionTokenString: invalid pActionBitMap ",
                 "(%s); lenght = %d, expected %d", bitMap, static_cast<int>(length), ZaroAction::kActionBitMapLength + 1);
#pragma GCC diagnostic pop
}

// The display text of a key, or the key itself.
std::string displayText(ZARO::KxResbundle& bundle, const char* key) {
  std::string text;
  if (bundle.getString(key, text)) {
    return text;
  }
  // Names "Delete" whatever the key: log watchers match the whole text.
  PolicyLog::log(LogLevel::Error,
                 "ZaroAction::CreateActionTokenString: ERROR: failed to retrieve string \"Delete\" from resource file ");
  return key;
}

void removeLastSeparator(std::string& tokens) {
  if (!tokens.empty()) {
    tokens.resize(tokens.size() - kSeparatorLength);
  }
}

}  // namespace

ZaroTable<ZaroAction::TokenPosition> ZaroAction::tokenPositions() {
  return ZaroTable<TokenPosition>(kTokens);
}

bool ZaroAction::CreateActionTokenString(const char* pActionBitMap, std::string& tokens) {
  const std::size_t length = pActionBitMap != nullptr ? std::strlen(pActionBitMap) : 0;
  if (length != kActionBitMapLength) {
    logInvalidBitMap(pActionBitMap != nullptr ? pActionBitMap : "NULL", length);
    tokens.clear();
    return false;
  }

  const std::string bitMap(pActionBitMap, length);  // `tokens` may be where the caller's text is
  tokens.clear();
  ZARO::KxResbundle bundle;
  bundle._init(ZARO::KxResbundle::GetResourceFileName(), "UiDisplay", nullptr);
  for (const TokenPosition& token : kTokens) {
    if (bitMap.c_str()[token.position] == kSet) {
      tokens.append(displayText(bundle, token.resourceKey)).append(kSeparator);
    }
  }
  removeLastSeparator(tokens);
  return true;
}
