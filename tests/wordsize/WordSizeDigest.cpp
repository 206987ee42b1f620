// Ten thousand results of the library, drawn from a fixed sequence: each area's number of results and a digest of them,
// one line an area. The same text comes out of every build, whatever its word size.
//
//   word_size_digest             prints it
//   word_size_digest FILE        compares it with a file, and names the areas that differ; status 1 if there are any
//   word_size_digest --results   prints every result, to find the one that differs
//
// The digest is FNV-1a with 64 bits (Fowler, Noll, Vo).
#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "Blob.h"
#include "EntityUtils.h"
#include "KxMatchExplanation.h"
#include "KxWildcardEmail.h"
#include "NamedObjMgr.h"
#include "RdbmsInterface.h"
#include "TextConversions.h"
#include "ZaroAction.h"
#include "ZaroFilter.h"
#include "ZaroMimeUtils.h"
#include "ZaroNamedObj.h"
#include "scripted/Platform.h"

namespace {

using scripted::Reply;
using scripted::Row;

// Draws without the distributions of the standard library, which differ between word sizes.
class Dice {
 public:
  explicit Dice(std::uint32_t seed) : m_random(seed) {}
  std::uint32_t below(std::uint32_t count) { return static_cast<std::uint32_t>(m_random()) % count; }
  std::uint32_t any() { return static_cast<std::uint32_t>(m_random()); }
  template <std::size_t Count>
  const char* oneOf(const char* const (&choices)[Count]) {
    return choices[below(Count)];
  }

 private:
  std::mt19937 m_random;
};

class Area {
 public:
  explicit Area(std::string name) : m_name(std::move(name)) {}

  void add(const std::string& result) {
    if (s_isShown) {
      std::cout << m_name << ' ' << result << '\n';
    }
    ++m_results;
    for (const char byte : result + '\n') {
      m_digest = (m_digest ^ static_cast<unsigned char>(byte)) * kPrime;
    }
  }
  std::string line() const {
    char text[64];
    std::snprintf(text, sizeof text, "%u %08x%08x", m_results, static_cast<unsigned int>(m_digest >> 32U),
                  static_cast<unsigned int>(m_digest & 0xFFFFFFFFU));
    return m_name + ' ' + text;
  }

  static void showResults() { s_isShown = true; }

 private:
  static constexpr std::uint64_t kPrime = 1099511628211ULL;

  static bool s_isShown;
  std::string m_name;
  unsigned int m_results = 0;
  std::uint64_t m_digest = 14695981039346656037ULL;
};

bool Area::s_isShown = false;

// Few pieces, so that patterns and addresses often meet.
std::string addressText(Dice& dice) {
  static const char* const kNames[] = {"", "a", "b", "A", "*", "*", "ab", "a*", "user", "\xC3\xA4"};
  static const char* const kLabels[] = {"", "a", "b", "B", "a", "b", "*", "a*b", "**", "user", "\xFF"};
  std::string text = dice.oneOf(kNames);
  if (dice.below(20) == 0) {
    return text;
  }
  text += '@';
  for (std::uint32_t labels = dice.below(4);; --labels) {
    text += dice.oneOf(kLabels);
    if (labels == 0) {
      return text;
    }
    text += '.';
  }
}

// --- Matching ---

std::string number(unsigned long value) {
  return std::to_string(value);
}

std::string answerTo(const std::string& address, std::vector<KxWildcardNode*>& trees) {
  unsigned int tree = 0;
  const char* name = nullptr;
  KxEmailBelongsTo kind = 0;
  const unsigned int code = KxWildcardEmail::matchEmailAddress(address.c_str(), trees, &tree, &name, &kind);
  std::string answer =
      address + " -> " + number(code) + ' ' + number(tree) + ' ' + (name != nullptr ? name : "-") + ' ' + number(kind);
  for (KxWildcardNode* each : trees) {
    std::vector<KxListedEmailAddress*> found;
    for (const KxListedEmailAddress* leaf : each->findMatches(address.c_str(), found)) {
      answer += std::string(" ") + leaf->getFullAddressAsStr() + ':' + number(leaf->getWeight()) + ':' +
                number(leaf->getState());
    }
    answer += " |";
  }
  KxMatchExplanation explanation;
  KxWildcardEmail::explainEmailAddress(address.c_str(), trees, explanation);
  for (const KxMatchCandidate& candidate : explanation.candidates) {
    answer += ' ' + number(static_cast<unsigned int>(candidate.fate));
  }
  return answer;
}

// Twelve lists of trees: half of them frozen, half not.
void matching(Area& area) {
  static constexpr KxEmailBelongsTo kKinds[] = {1, 2, 4, 8, 16, 32};
  Dice dice(1);
  for (int list = 0; list < 12; ++list) {
    std::vector<std::unique_ptr<KxWildcardNode>> owned;
    std::vector<KxWildcardNode*> trees;
    for (std::uint32_t tree = 0; tree < 1 + dice.below(4); ++tree) {
      owned.emplace_back(list % 3 == 0 ? KxWildcardEmail::makeNewFloatingTree() : KxWildcardEmail::makeNewTree());
      trees.push_back(owned.back().get());
      const std::uint32_t patterns = dice.below(2) == 0 ? 20 : 800;
      const std::uint32_t kinds = tree == 0 && dice.below(2) == 0 ? 4 : 6;
      for (std::uint32_t pattern = 0; pattern < patterns; ++pattern) {
        const KxEmailBelongsTo kind = kKinds[6 - kinds + dice.below(kinds)];
        trees.back()->addAddressPattern(addressText(dice).c_str(), kind, nullptr, nullptr);
      }
    }
    if (list % 2 == 0) {
      KxWildcardEmail::initScanTimeMode();
    }
    for (int i = 0; i < 350; ++i) {
      area.add(answerTo(addressText(dice), trees));
    }
  }
}

// --- Sorting ---

void sorting(Area& area) {
  Dice dice(2);
  KxStringtable table;
  std::vector<const KxIndexedString*> entries;
  for (int i = 0; i < 1200; ++i) {
    std::string text;
    for (std::uint32_t length = dice.below(24); length != 0; --length) {
      text += static_cast<char>(1 + dice.below(dice.below(2) == 0 ? 3 : 255));
    }
    entries.push_back(table.getStringtableRef(text.c_str()));
  }
  table.lock();
  std::sort(entries.begin(), entries.end(), [](const auto* one, const auto* other) { return *one < *other; });
  for (const KxIndexedString* entry : entries) {
    area.add(number(entry->getIndex()) + ' ' + entry->getString());
  }
}

// --- Text forms ---

std::string numberText(Dice& dice) {
  static const char* const kTexts[] = {"",
                                       " 7",
                                       "+7",
                                       "-7",
                                       "2147483647",
                                       "2147483648",
                                       "-2147483648",
                                       "-2147483649",
                                       "4294967295",
                                       "4294967296",
                                       "-4294967295",
                                       "-4294967296",
                                       "99999999999",
                                       "-1x",
                                       "0x10",
                                       "1e3",
                                       "\t\n12",
                                       "- 1",
                                       "9223372036854775807",
                                       "18446744073709551616"};
  if (dice.below(3) == 0) {
    return dice.oneOf(kTexts);
  }
  // One draw a statement: the order of operands is the compiler's.
  const std::string sign = dice.below(2) == 0 ? "-" : "";
  const std::uint32_t bits = dice.below(32);
  return sign + number(dice.any() >> bits);
}

void conversions(Area& area) {
  Dice dice(3);
  for (int i = 0; i < 1500; ++i) {
    const std::string text = numberText(dice);
    std::string trimmed = (dice.below(2) == 0 ? " \t\r\n" : "\n \r") + text;
    trimmed += dice.below(2) == 0 ? "\r\n\t " : " \r";
    trim(trimmed);
    const auto some = static_cast<int>(dice.any());
    area.add(text + ' ' + number(static_cast<unsigned int>(toInt(text))) + ' ' + number(toUInt(text)) + ' ' +
             toString(some) + ' ' + toString(static_cast<unsigned int>(some)) + ' ' +
             toString(static_cast<long>(some)) + ' ' + trimmed + ' ' + number(trimmed.size()));
  }
}

void blobs(Area& area) {
  Dice dice(4);
  for (int i = 0; i < 1000; ++i) {
    Blob::Fields fields;
    for (std::uint32_t field = dice.below(6); field != 0; --field) {
      const std::string key = "key" + number(dice.below(9));
      fields[key] = numberText(dice);
    }
    unsigned int whole = dice.any();
    auto small = static_cast<short>(dice.any() & 0x7FFFU);
    Blob::bindBlobField(fields, "whole", whole, true);
    Blob::bindBlobField(fields, "small", small, true);
    std::string text;
    Blob::writeBlob(text, fields);
    Blob::Fields read;
    const char* cursor = text.c_str();
    Blob::readBlob(cursor, read);
    std::string result = text + number(static_cast<unsigned long>(cursor - text.c_str()));
    for (const char* key : {"key0", "key1", "key2", "whole"}) {
      int variable = -2;
      short narrow = -2;
      Blob::bindBlobField(read, key, variable, false);
      Blob::bindBlobField(read, key, narrow, false);
      result += ' ' + std::to_string(variable) + ' ' + std::to_string(narrow);
    }
    area.add(result);
  }
}

void base64(Area& area) {
  Dice dice(5);
  for (int i = 0; i < 1000; ++i) {
    std::string bytes;
    for (std::uint32_t length = dice.below(200); length != 0; --length) {
      bytes += static_cast<char>(dice.below(256));
    }
    CBase64Utils codec;
    char* encoded = codec.Encode(bytes.data(), static_cast<int>(bytes.size()));
    std::string text = encoded != nullptr ? encoded : "";
    std::free(encoded);
    if (!text.empty() && dice.below(4) == 0) {
      const std::uint32_t at = dice.below(static_cast<std::uint32_t>(text.size()));
      text[at] = static_cast<char>(1 + dice.below(255));
    }
    auto length = static_cast<int>(text.size());
    char* decoded = codec.Decode(text.data(), &length);
    std::string result = text + ' ' + std::to_string(length) + ' ' + (codec.hasError() ? "wrong " : "");
    for (int at = 0; decoded != nullptr && at < length; ++at) {
      result += number(static_cast<unsigned char>(decoded[at])) + ',';
    }
    std::free(decoded);
    area.add(result);
  }
}

void objectTexts(Area& area) {
  Dice dice(6);
  for (int i = 0; i < 300; ++i) {
    std::vector<PolicyObjectRecord> records(dice.below(5));
    NamedObjMgrForPolicy objects;
    objects.leadValue = static_cast<int>(dice.any());
    for (PolicyObjectRecord& record : records) {
      record.value = static_cast<int>(dice.any());
      record.firstText = numberText(dice);
      record.secondText = addressText(dice);
      record.firstSize = dice.below(100);
      record.secondSize = dice.below(100);
      objects.records[static_cast<int>(dice.any())] = &record;
    }
    std::string text;
    unsigned int sizeHint = 0;
    objects.serialize(text, sizeHint);
    area.add(text + ' ' + number(sizeHint));
  }
}

void vocabulary(Area& area) {
  for (int kind = -3; kind < 60; ++kind) {
    const auto action = static_cast<ZaroAction::ActionType>(kind);
    const auto filter = static_cast<ZaroFilter::FilterType>(kind);
    area.add(std::to_string(kind) + ' ' + ZaroAction::getActionName(action) + ' ' + ZaroFilter::getFilterName(filter));
  }
}

// --- Visibility ---

constexpr unsigned int kAdmin = 7;

void scriptInstallation(Dice& dice) {
  static const char* const kNames[] = {"*@*",    "*@*.b.test", "*@b.test",     "*@a.b.test",  "user@a.b.test",
                                       "user@*", "*@*.test",   "other@b.test", "*@c.d.b.test"};
  static const char* const kObjects[] = {"a", "A", "b", "B", "ab", "OPP:x", "opp:x", "c", "C"};
  scripted::platform().reset();
  scripted::Database& database = scripted::platform().database;
  database.replyToFile("ui_IsAdminRoot_Id.sql", Reply({"IsAdminRoot"}, {{dice.below(20) == 0 ? "1" : "0"}}));
  std::vector<Row> all, own, owners;
  for (unsigned int id = 1; id <= 9; ++id) {
    if (dice.below(3) != 0) {
      all.push_back({number(id), kNames[id - 1]});
    }
    if (dice.below(4) == 0 || id == 4) {
      own.push_back({number(id), "6", kNames[id - 1]});
    }
  }
  for (unsigned int id = 41; id < 41 + 1 + dice.below(9); ++id) {
    const std::string name = dice.oneOf(kObjects);
    for (std::uint32_t owner = 1 + dice.below(3); owner != 0; --owner) {
      owners.push_back({number(1 + dice.below(9)), number(id), name});
    }
    database.reply("ui_GetNamedObjRule.sql [" + number(id) + "] [" + number(id) + "]",
                   Reply({"RuleID"}, dice.below(3) == 0 ? std::vector<Row>{{"1"}} : std::vector<Row>{}));
  }
  database.reply("ui_GetEntitiesByType.sql [2]", Reply({"EntityID", "EntityName"}, {}));
  database.reply("ui_GetEntitiesByType.sql [6]", Reply({"EntityID", "EntityName"}, all));
  database.replyToFile("ui_GetAdminEntityById.sql", Reply({"EntityID", "EntityType", "EntityName"}, own));
  database.replyToFile("ui_GetEntityNamedObj.sql", Reply({"EntityID", "NamedObjID", "Name"}, owners));
}

void visibility(Area& area) {
  Dice dice(7);
  ZARO::RdbmsInterface db;
  for (int i = 0; i < 800; ++i) {
    scriptInstallation(dice);
    std::vector<SummaryNamedObject> out;
    std::string result = ZaroNamedObj::getIds(db, kAdmin, static_cast<ZaroNamedObj::NaObjType>(9), out) ? "" : "failed ";
    for (const SummaryNamedObject& one : out) {
      result += one.name + ' ' + number(one.id) + (one.editable ? "e" : "") + (one.deletable ? "d" : "") + ' ';
    }
    area.add(result);
  }
}

std::string digest() {
  const struct {
    const char* name;
    void (*fill)(Area&);
  } kAreas[] = {{"matching", matching},     {"sorting", sorting},      {"conversions", conversions},
                {"blobs", blobs},           {"base64", base64},        {"object-texts", objectTexts},
                {"vocabulary", vocabulary}, {"visibility", visibility}};
  std::string text;
  for (const auto& row : kAreas) {
    Area area(row.name);
    row.fill(area);
    text += area.line() + '\n';
  }
  return text;
}

int compare(const std::string& path, const std::string& text) {
  std::ifstream file(path);
  std::istringstream ours(text);
  std::string want, got;
  bool differs = !file;
  while (std::getline(ours, got)) {
    want.clear();
    std::getline(file, want);
    if (want != got) {
      std::cout << path << ": " << (want.empty() ? "nothing" : want) << "\nthis build: " << got << '\n';
      differs = true;
    }
  }
  return differs || std::getline(file, want) ? 1 : 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 2 && std::strcmp(argv[1], "--results") == 0) {
    Area::showResults();
    digest();
    return 0;
  }
  const std::string text = digest();
  if (argc == 2) {
    return compare(argv[1], text);
  }
  std::cout << text;
  return 0;
}
