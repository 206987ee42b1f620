// The words of rules.
#include "policy/PolicyVocabulary.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ZaroRuntime/RuntimeError.h"
#include "console/UsageError.h"

namespace {

TEST(PolicyVocabulary, writesKeysAsTheBitmap) {
  EXPECT_EQ(actionBitmap({}), "00000000000000000");
  EXPECT_EQ(actionBitmap({"Delete"}), "10000000000000000");
  EXPECT_EQ(actionBitmap({"Quarantine", "SubjectTagging"}), "01000000100000000");
  EXPECT_EQ(actionBitmap({"Archive", "Readdress", "Postpone", "Bcc", "InsertXHeaderTag"}), "00010100010011000");
}

TEST(PolicyVocabulary, refusesWhatNoFilterCanDo) {
  for (const char* key : {"Stamped", "DeleteAttachment", "Notify", "VirusClean", "Handoff", "IBEEncrypt", "Veridock"}) {
    EXPECT_THROW(actionBitmap({key}), UsageError) << key;
  }
  EXPECT_THROW(actionBitmap({"delete"}), UsageError);
  EXPECT_THROW(actionBitmap({""}), UsageError);
}

TEST(PolicyVocabulary, readsKeysStrongestFirst) {
  EXPECT_EQ(keysText(keysIn("11010100110011000")),
            "Archive,Delete,Quarantine,Readdress,SubjectTagging,Bcc,Postpone,InsertXHeaderTag");
  EXPECT_EQ(keysText(keysIn("00000011000000000")), "DeleteAttachment,Stamped");
  EXPECT_TRUE(keysIn("").empty());
}

TEST(PolicyVocabulary, refusesABitmapThatIsNone) {
  for (const char* bitmap : {"1", "1000000000000000x", "100000000000000000", "00000000000000100", "00100000000000000"}) {
    EXPECT_THROW(keysIn(bitmap), zaroruntime::RuntimeError) << bitmap;
  }
}

TEST(PolicyVocabulary, namesKindsAndComparisons) {
  const std::vector<std::pair<std::string, KxEmailBelongsTo>> kinds = {
      {"allow", 1}, {"block", 2}, {"weak-block", 4}, {"weak-allow", 8}, {"except-allow", 16}, {"except-block", 32}};
  for (const auto& [name, kind] : kinds) {
    EXPECT_EQ(listKind(name), kind);
    EXPECT_EQ(listKind(std::to_string(kind)), kind);
    EXPECT_EQ(nameOfKind(kind), name);
  }
  EXPECT_FALSE(listKind("64"));
  EXPECT_FALSE(listKind("3"));
  EXPECT_EQ(comparison("both"), MailPolicy::Compare::Both);
  EXPECT_FALSE(comparison("neither"));
  EXPECT_EQ(nameOfComparison(MailPolicy::Compare::Header), "header");
}

}  // namespace
