// Leaves: texts, kinds and weight of a stored pattern. There are millions of them, so that what few have (annotation,
// owners) lies apart, and the weight shares its word with a flag.
#include "KxListedEmailAddress.h"

#include <cstring>

#include "PolicyLog.h"
#include "addressmatch/intern/Handles.h"
#include "addressmatch/intern/LibraryLifetime.h"
#include "addressmatch/intern/ParsedAddress.h"
#include "addressmatch/leaf/Kinds.h"
#include "addressmatch/leaf/PatternWeight.h"
#include "addressmatch/text/Memory.h"

using namespace zaro_addressmatch;

namespace {

const char* textOf(const KxIndexedString& handle) {
  return handle.getString() != nullptr ? handle.getString() : "";
}

bool sameText(const char* one, const char* other) {
  return one != nullptr && std::strcmp(one, other) == 0;
}

// Releases a label of a split pattern.
void releaseLabel(const KxIndexedString* label, const char* fullAddress) {
  const auto report = [fullAddress](const char* text, unsigned int index) {
    if (text == nullptr) {
      PolicyLog::log(
          LogLevel::Error,
          "KxListedEmailAddress::_computeWeight: failed to clean up a piece of the domain : NULL. This object's full address is %s, %d",
          fullAddress, 0);
    } else {
      // The label's index stands twice; log watchers know the line that way.
      PolicyLog::log(
          LogLevel::Error,
          "KxListedEmailAddress::_computeWeight: failed to clean up a piece of the domain : %s, %d. This object's full address is %s, %d",
          text, static_cast<int>(index), fullAddress, static_cast<int>(index));
    }
  };
  release(label, report);
}

// Pairs of kinds that exclude each other: an exception and what it takes back, and the tiers among themselves.
constexpr KxEmailBelongsTo kForbiddenPairs[] = {
    kExceptionToB | kSecondTierB,
    kExceptionToA | kSecondTierA,
    kFirstTierB | kSecondTierB,
    kFirstTierA | kSecondTierA,
};

unsigned int countOf(KxEmailBelongsTo bits) {
  unsigned int count = 0;
  for (; bits != 0; bits &= bits - 1) {
    ++count;
  }
  return count;
}

}  // namespace

// What few leaves have.
struct KxListedEmailAddress::Extras {
  std::vector<std::string*> _relatedPolicyOwners;
  bool _ownerless = true;
  std::string _annotation;
};

KxListedEmailAddress::KxListedEmailAddress(KxStringtable* table, const char* fullAddress, const char* name)
    : KxLockableClass(table != nullptr),
      KxIndexedStringNamedClass(table, name),
      _fullAddress(_lookupAndCheckName(fullAddress, table)),
      _weight(weightOf(textOf(getFullAddress())) & kWeightBits),
      _inArena(0),
      _state(0) {}

KxListedEmailAddress::KxListedEmailAddress(KxStringtable* table, const KxIndexedString* fullAddress,
                                           const KxIndexedString* name)
    : KxLockableClass(table != nullptr),
      KxIndexedStringNamedClass(table, name),
      _fullAddress(_lookupAndCheckName(fullAddress, table)),
      _weight(weightOf(textOf(getFullAddress())) & kWeightBits),
      _inArena(0),
      _state(0) {}

KxListedEmailAddress::KxListedEmailAddress(KxStringtable& table, const KxIndexedString& fullAddress,
                                           const KxIndexedString& name, unsigned int weight)
    : KxLockableClass(true),
      KxIndexedStringNamedClass(table, name),
      _fullAddress(&fullAddress),
      _weight(weight & kWeightBits),
      _inArena(1),
      _state(0) {}

KxListedEmailAddress::~KxListedEmailAddress() {
  if (_inArena != 0) {
    _name = &KxStringtable::_theEmptyIndexedString;  // both texts are the table's or the tree's
    return;
  }
  if (isGone(_stringtable)) {
    return;
  }
  release(_fullAddress, [](const char* text, unsigned long index) {
    if (text == nullptr) {
      PolicyLog::log(LogLevel::Error, "~KxListedEmailAddress: Failed to cleanup _fullAddress reference: NULL");
    } else {
      PolicyLog::log(LogLevel::Error, "~KxListedEmailAddress: Failed to cleanup _fullAddress reference: %s , %lu", text,
                     index);
    }
  });
}

void KxListedEmailAddress::lock() {
  _lock();
}

bool KxListedEmailAddress::matchName(const char* name) const {
  if (_name == nullptr || name == nullptr) {
    return false;
  }
  return sameText(_name->getString(), name) || sameText(getFullAddressAsStr(), name);
}

bool KxListedEmailAddress::matchName(const KxIndexedString& name) const {
  if (_name == nullptr) {
    return false;
  }
  return *_name == name || (_fullAddress != nullptr && *_fullAddress == name);
}

// The labels are made and released as handles for the log's sake: it has lines for those that cannot be.
void KxListedEmailAddress::_computeWeight() {
  const char* address = getFullAddress().getString();
  _weight = 0;
  withinMemory([&] {
    ParsedAddress parsed(_stringtable, address);
    for (LabelStack& labels = parsed.labels(); !labels.empty(); labels.pop()) {
      releaseLabel(labels.top(), address);
    }
    if (parsed.isComplete()) {
      _weight = weightOf(address) & kWeightBits;
    }
  });
}

bool KxListedEmailAddress::isStateAllowed(KxEmailBelongsTo state) {
  constexpr KxEmailBelongsTo kCounted = 2 * kForbidden - 1;
  if ((state & kForbidden) != 0) {
    return false;
  }
  const unsigned int count = countOf(state & kCounted);
  if (count != 2) {
    return count < 2;
  }
  // The whole value is compared, so a pair with higher bits beside it is only asked for its exception.
  for (const KxEmailBelongsTo pair : kForbiddenPairs) {
    if (state == pair) {
      return false;
    }
  }
  return (state & (kExceptionToA | kExceptionToB)) != 0;
}

bool KxListedEmailAddress::addMembership(KxEmailBelongsTo kinds) {
  return _changeState(_state | kinds);
}

bool KxListedEmailAddress::removeMembership(KxEmailBelongsTo kinds) {
  return _changeState(_state & ~kinds);
}

bool KxListedEmailAddress::_changeState(KxEmailBelongsTo state) {
  if (isLocked() || !isStateAllowed(state)) {
    return false;
  }
  _state = state;
  return true;
}

const KxListedEmailAddress::Extras& KxListedEmailAddress::_extrasOrNone() const {
  static const Extras none;
  return _extras != nullptr ? *_extras : none;
}

// Throws std::bad_alloc.
KxListedEmailAddress::Extras& KxListedEmailAddress::_ownExtras() {
  if (_extras == nullptr) {
    _extras = std::make_unique<Extras>();
  }
  return *_extras;
}

const std::string& KxListedEmailAddress::getAnnotation() const {
  return _extrasOrNone()._annotation;
}

const std::vector<std::string*>& KxListedEmailAddress::getRelatedPolicyOwners() const {
  return _extrasOrNone()._relatedPolicyOwners;
}

bool KxListedEmailAddress::isOwnerless() const {
  return _extrasOrNone()._ownerless;
}

void KxListedEmailAddress::setOwnerless() {
  if (_extras != nullptr) {
    _extras->_ownerless = true;
  }
}

bool KxListedEmailAddress::setAnnotation(const char* annotation) {
  return withinMemory([&] { _ownExtras()._annotation = annotation; });
}

bool KxListedEmailAddress::addRelatedPolicyOwner(std::string* owner) {
  PolicyLog::log(LogLevel::Trace, "KxListedEmailAddress::addRelatedPolicyOwner() pNewPolicyOwner=%s", owner->c_str());
  return withinMemory([&] { _ownExtras()._relatedPolicyOwners.push_back(owner); });
}

KxWildcardedEmailAddress::KxWildcardedEmailAddress(KxStringtable* table, const char* fullAddress)
    : KxListedEmailAddress(table, fullAddress, KxStringtable::_theWildcardIndexedString.getString()) {}

KxWildcardedEmailAddress::KxWildcardedEmailAddress(KxStringtable* table, const KxIndexedString* fullAddress)
    : KxListedEmailAddress(table, fullAddress, &KxStringtable::_theWildcardIndexedString) {}

KxWildcardedEmailAddress::KxWildcardedEmailAddress(KxStringtable& table, const KxIndexedString& fullAddress,
                                                   const KxIndexedString& name, unsigned int weight)
    : KxListedEmailAddress(table, fullAddress, name, weight) {}

bool KxWildcardedEmailAddress::matchName(const char* /*name*/) const {
  return true;
}

bool KxWildcardedEmailAddress::matchName(const KxIndexedString& /*name*/) const {
  return true;
}
