// Snapshots as they are served, and the files that secrets are read from.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>
#include <string>

#include "ZaroRuntime/RuntimeError.h"
#include "access/Tokens.h"
#include "installation/PrivateFile.h"
#include "policy/PolicyMaker.h"
#include "snapshot/Gzip.h"
#include "snapshot/SnapshotMaker.h"
#include "support/SnapshotText.h"
#include "support/TemporaryDirectory.h"

namespace {

using zaroruntime::RuntimeError;

MailPolicy policyOf(const std::string& member, std::uint64_t version) {
  PolicyMaker made;
  made.rule("rule", {member}, 2);
  made.policy().version = version;
  return made.policy();
}

TEST(Snapshots, haveTheirVersionAndDigestAsTag) {
  const auto made = makeSnapshot(policyOf("a@b.test", 17));
  const std::string& text = *made->text;
  const std::size_t digest = text.rfind("{\"sha256\":\"") + 11;
  EXPECT_EQ(made->tag, "\"17-" + text.substr(digest, 64) + "\"");
  EXPECT_EQ(zarotest::policyInSnapshot(text).version, 17u);
}

TEST(Snapshots, ofATextKeepIt) {
  const auto made = makeSnapshot(policyOf("a@b.test", 17));
  const auto again = makeSnapshot(*made->text);
  EXPECT_EQ(again->tag, made->tag);
  EXPECT_EQ(*again->text, *made->text);
  EXPECT_EQ(again->rules, 1u);
  EXPECT_THROW(makeSnapshot(made->text->substr(1)), RuntimeError);
  EXPECT_THROW(makeSnapshot(std::string()), RuntimeError);
}

TEST(Snapshots, ofTheSamePolicyDifferInTheirTimeOnly) {
  const auto one = makeSnapshot(policyOf("a@b.test", 17));
  EXPECT_TRUE(haveSamePolicy(*one, *makeSnapshot(policyOf("a@b.test", 17))));
  EXPECT_FALSE(haveSamePolicy(*one, *makeSnapshot(policyOf("a@b.test", 18))));
  EXPECT_FALSE(haveSamePolicy(*one, *makeSnapshot(policyOf("c@b.test", 17))));
}

// The process tests have others decompress it; here, what needs more room than is guessed at first.
TEST(Snapshots, areCompressedWhateverTheyHold) {
  std::string text;
  unsigned int state = 1;
  for (int i = 0; i < 100000; ++i) {
    state = state * 1664525U + 1013904223U;
    text += static_cast<char>(state >> 24U);
  }
  EXPECT_GT(gzipped(text).size(), text.size());
  EXPECT_LT(gzipped(std::string(100000, 'x')).size(), 1000u);
  EXPECT_EQ(gzipped("").substr(0, 2), "\x1f\x8b");
}

struct FileCase {
  mode_t mode;
  bool isPrivate;
};

// The tests run as the owner of the file, who may be root: then its group may read it.
const FileCase kFileCases[] = {
    {0600, true}, {0400, true}, {0604, false}, {0602, false}, {0620, false}, {0666, false},
};

TEST(PrivateFiles, areTheirOwnersAlone) {
  const zarotest::TemporaryDirectory directory;
  const std::string path = directory.path("secret");
  std::ofstream(path) << "token\n";
  for (const FileCase& row : kFileCases) {
    ASSERT_EQ(chmod(path.c_str(), row.mode), 0);
    if (row.isPrivate) {
      EXPECT_EQ(readPrivateFile(path), "token\n");
    } else {
      EXPECT_THROW(readPrivateFile(path), RuntimeError) << std::oct << row.mode;
    }
  }
  EXPECT_THROW(readPrivateFile(directory.path("none")), RuntimeError);
  EXPECT_THROW(readPrivateFile(directory.path("")), RuntimeError);
  EXPECT_THROW(readPrivateFile("/dev/zero"), RuntimeError);
}

TEST(Tokens, areOneALine) {
  const Tokens tokens("\nfirst-token \r\n\nsecond.token=\n");
  EXPECT_TRUE(tokens.contains("first-token"));
  EXPECT_TRUE(tokens.contains("second.token="));
  for (const char* wrong : {"", "first", "first-token ", "first-tokens", "second.token"}) {
    EXPECT_FALSE(tokens.contains(wrong)) << wrong;
  }
  EXPECT_FALSE(Tokens().contains(""));
  for (const char* none : {"", "\n \n", "a token\n", "=\n", "t\xC3\xB6ken\n"}) {
    EXPECT_THROW(Tokens{none}, RuntimeError) << none;
  }
}

}  // namespace
