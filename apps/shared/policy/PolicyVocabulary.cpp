#include "policy/PolicyVocabulary.h"

#include <algorithm>
#include <cstddef>
#include <iterator>

#include "ZaroRuntime/RuntimeError.h"
#include "console/Text.h"
#include "console/UsageError.h"

using zaroruntime::FailureKind;
using zaroruntime::RuntimeError;

namespace {

// Strongest first.
constexpr ActionKey kActionKeys[] = {
    {"Archive", ZaroAction::Archive, true},
    {"Delete", ZaroAction::Delete, true},
    {"Quarantine", ZaroAction::Quarantine, true},
    {"Readdress", ZaroAction::Readdress, true},
    {"DeleteAttachment", ZaroAction::DeleteAttachment, false},
    {"VirusClean", ZaroAction::VirusClean, false},
    {"SubjectTagging", ZaroAction::SubjectTagging, true},
    {"Stamped", ZaroAction::Stamp, false},
    {"Bcc", ZaroAction::Bcc, true},
    {"Notify", ZaroAction::Notify, false},
    {"Handoff", ZaroAction::Handoff, false},
    {"Postpone", ZaroAction::Postpone, true},
    {"Veridock", ZaroAction::Veridock, false},
    {"InsertXHeaderTag", ZaroAction::InsertXHeader, true},
    {"IBEEncrypt", ZaroAction::IBEEncrypt, false},
};

struct KindRow {
  KxEmailBelongsTo kind;
  const char* name;
};
constexpr KindRow kKinds[] = {
    {1, "allow"}, {2, "block"}, {4, "weak-block"}, {8, "weak-allow"}, {16, "except-allow"}, {32, "except-block"},
};

struct CompareRow {
  MailPolicy::Compare compare;
  const char* name;
};
constexpr CompareRow kComparisons[] = {
    {MailPolicy::Compare::Envelope, "envelope"},
    {MailPolicy::Compare::Header, "header"},
    {MailPolicy::Compare::Both, "both"},
};

// Of a key in the bitmap; the library knows it.
std::optional<std::size_t> positionOf(const ActionKey& key) {
  for (const ZaroAction::TokenPosition& position : ZaroAction::tokenPositions()) {
    if (position.position < ZaroAction::kActionBitMapLength && std::string_view(position.resourceKey) == key.name) {
      return static_cast<std::size_t>(position.position);
    }
  }
  return std::nullopt;
}

bool isBitmap(const std::string& text) {
  return text.size() == ZaroAction::kActionBitMapLength && text.find_first_not_of("01") == std::string::npos;
}

}  // namespace

const ActionKey* findActionKey(std::string_view name) {
  const auto* const key = std::find_if(std::begin(kActionKeys), std::end(kActionKeys),
                                       [&](const ActionKey& one) { return name == one.name; });
  return key != std::end(kActionKeys) ? key : nullptr;
}

std::string supportedActionKeys() {
  std::string text;
  for (const ActionKey& key : kActionKeys) {
    if (key.isSupported) {
      text.append(text.empty() ? "" : ", ").append(key.name);
    }
  }
  return text;
}

std::string actionBitmap(const std::vector<std::string>& keys) {
  std::string bitmap(ZaroAction::kActionBitMapLength, '0');
  for (const std::string& name : keys) {
    const ActionKey* key = findActionKey(name);
    if (key == nullptr) {
      throw UsageError(quoted(name) + " is no action; there are " + supportedActionKeys());
    }
    const auto position = positionOf(*key);
    if (!key->isSupported || !position) {
      throw UsageError("a mail filter cannot do " + name + "; it can do " + supportedActionKeys());
    }
    bitmap[*position] = '1';
  }
  return bitmap;
}

std::vector<const ActionKey*> keysIn(const std::string& bitmap) {
  std::vector<const ActionKey*> keys;
  if (bitmap.empty()) {
    return keys;
  }
  if (!isBitmap(bitmap)) {
    throw RuntimeError(quoted(bitmap) + " is no action bitmap", FailureKind::Data);
  }
  for (const ActionKey& key : kActionKeys) {
    const auto position = positionOf(key);
    if (position && bitmap[*position] == '1') {
      keys.push_back(&key);
    }
  }
  if (static_cast<std::ptrdiff_t>(keys.size()) != std::count(bitmap.begin(), bitmap.end(), '1')) {
    throw RuntimeError("the action bitmap " + quoted(bitmap) + " has a position set that stands for no action",
                       FailureKind::Data);
  }
  return keys;
}

std::string keysText(const std::vector<const ActionKey*>& keys) {
  std::string text;
  for (const ActionKey* key : keys) {
    text.append(text.empty() ? "" : ",").append(key->name);
  }
  return text;
}

std::optional<KxEmailBelongsTo> listKind(std::string_view text) {
  for (const KindRow& row : kKinds) {
    if (text == row.name || text == std::to_string(row.kind)) {
      return row.kind;
    }
  }
  return std::nullopt;
}

std::string nameOfKind(KxEmailBelongsTo kind) {
  const auto* const row =
      std::find_if(std::begin(kKinds), std::end(kKinds), [&](const KindRow& one) { return one.kind == kind; });
  return row != std::end(kKinds) ? row->name : std::to_string(kind);
}

bool isListKind(KxEmailBelongsTo kind) {
  return std::any_of(std::begin(kKinds), std::end(kKinds), [&](const KindRow& row) { return row.kind == kind; });
}

std::optional<MailPolicy::Compare> comparison(std::string_view text) {
  for (const CompareRow& row : kComparisons) {
    if (text == row.name) {
      return row.compare;
    }
  }
  return std::nullopt;
}

std::string nameOfComparison(MailPolicy::Compare compare) {
  const auto* const row = std::find_if(std::begin(kComparisons), std::end(kComparisons),
                                       [&](const CompareRow& one) { return one.compare == compare; });
  return row != std::end(kComparisons) ? row->name : std::to_string(static_cast<int>(compare));
}
