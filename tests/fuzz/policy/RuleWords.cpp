// The words and bitmaps in which rules are stored and written: what is read comes back as it was.
#include <string>
#include <vector>

#include "FuzzInput.h"
#include "ZaroRuntime/RuntimeError.h"
#include "console/UsageError.h"
#include "policy/PolicyVocabulary.h"

namespace {

void checkBitmap(const std::string& text) {
  std::vector<const ActionKey*> keys;
  try {
    keys = keysIn(text);
  } catch (const zaroruntime::RuntimeError&) {
    return;
  }
  std::vector<std::string> names;
  for (const ActionKey* key : keys) {
    FUZZ_CHECK(names.empty() || findActionKey(names.back())->type <= key->type);
    names.emplace_back(key->name);
  }
  try {
    FUZZ_CHECK(text.empty() || actionBitmap(names) == text);
  } catch (const UsageError&) {
    bool isAnyUnsupported = false;
    for (const ActionKey* key : keys) {
      isAnyUnsupported = isAnyUnsupported || !key->isSupported;
    }
    FUZZ_CHECK(isAnyUnsupported);
  }
}

void checkWords(const std::string& text) {
  if (const ActionKey* key = findActionKey(text)) {
    FUZZ_CHECK(text == key->name);
  }
  if (const auto kind = listKind(text)) {
    FUZZ_CHECK(isListKind(*kind) && (nameOfKind(*kind) == text || std::to_string(*kind) == text));
  }
  if (const auto compare = comparison(text)) {
    FUZZ_CHECK(nameOfComparison(*compare) == text);
  }
}

void checkKeys(const std::string& text) {
  std::vector<std::string> names(1);
  for (const char character : text) {
    if (character == ',') {
      names.emplace_back();
    } else {
      names.back() += character;
    }
  }
  try {
    const std::string bitmap = actionBitmap(names);
    FUZZ_CHECK(actionBitmap(names) == bitmap && keysIn(bitmap).size() <= names.size());
  } catch (const UsageError&) {
  }
}

}  // namespace

// A bitmap, a word, and keys with commas between, whichever the text is.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text = textOf(data, size);
  checkBitmap(text);
  checkWords(text);
  checkKeys(text);
  return 0;
}
