// The text in which named objects are handed to the policy.
#pragma once

#include <map>
#include <string>

#include "ZaroPolicyExport.h"

struct PolicyObjectRecord {
  int value = 0;
  std::string firstText;
  std::string secondText;
  // Used by the size estimate only.
  unsigned int firstSize = 0;
  unsigned int secondSize = 0;
};

// Filled and owned by its user. Not locked: no other thread may change it, or a record of it, during a call.
class ZARO_POLICY_EXPORT NamedObjMgrForPolicy {
 public:
  int leadValue = 0;
  std::map<int, PolicyObjectRecord*> records;  // by key; a null pointer is counted and otherwise skipped

  // Writes `count;lead;`, and for each record in the order of the keys
  // `key;value;length of second text;second text;length of first text;first text;`, numbers in decimal, lengths in
  // bytes. The texts stand as they are and may hold ";": a reader steps over them by their lengths.
  //   text       replaced
  //   sizeHint   receives an estimate of the text's length, made from the records' sizes, not from their texts; room
  //              for as much is reserved in `text`
  // Always true. Throws std::bad_alloc when memory runs out.
  bool serialize(std::string& text, unsigned int& sizeHint);
};
