// The words in which rules are written: keys of actions, kinds of lists, and what of a sender is compared.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ZaroAction.h"
#include "policy/MailPolicy.h"

// A key of the action bitmap.
struct ActionKey {
  const char* name;
  ZaroAction::ActionType type;  // its rank: a lower number is stronger
  bool isSupported;             // whether a mail filter can do it
};

// Null for a text that is no key.
const ActionKey* findActionKey(std::string_view name);
// The keys that a mail filter can do, in a list for messages.
std::string supportedActionKeys();

// A bitmap with the position of each key set. UsageError for what is no key, and for a key that no mail filter can do.
std::string actionBitmap(const std::vector<std::string>& keys);
// The keys whose positions are set, the strongest first. An empty text has none. Throws RuntimeError for a text that is
// no bitmap, and for a set position without a key.
std::vector<const ActionKey*> keysIn(const std::string& bitmap);
// "Delete,Archive", the strongest first.
std::string keysText(const std::vector<const ActionKey*>& keys);

// allow, block, weak-block, weak-allow, except-allow, except-block, or the number; nothing for any other text.
std::optional<KxEmailBelongsTo> listKind(std::string_view text);
// The word of a kind; its number for any other.
std::string nameOfKind(KxEmailBelongsTo kind);
bool isListKind(KxEmailBelongsTo kind);

// envelope, header, both; nothing for any other text.
std::optional<MailPolicy::Compare> comparison(std::string_view text);
std::string nameOfComparison(MailPolicy::Compare compare);
