// What is no whole snapshot of a policy, by accident or by malice; and that one with awkward values comes back.
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "ZaroRuntime/RuntimeError.h"
#include "support/SnapshotText.h"

namespace {

using zarotest::policyInSnapshot;
using zarotest::snapshotBody;
using zarotest::snapshotText;
using zarotest::withSnapshotTail;

std::string refusalOf(const std::string& text) {
  try {
    policyInSnapshot(text);
  } catch (const zaroruntime::RuntimeError& refusal) {
    return refusal.what();
  }
  return "";
}

std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) {
    lines.push_back(line);
  }
  return lines;
}

std::string joined(const std::vector<std::string>& lines) {
  std::string text;
  for (const std::string& line : lines) {
    text += line + "\n";
  }
  return text;
}

// Something of everything, with awkward texts and the numbers at the ends of their ranges.
MailPolicy wholePolicy() {
  MailPolicy policy;
  policy.version = 18446744073709551615U;
  MailPolicy::Rule rule;
  rule.id = 4294967294U;
  rule.name = "l\xc3\xa4nge \"x\" \\ \n\t";
  rule.position = 7;
  rule.enabled = true;
  rule.scope = 1;
  rule.lists = {{2, 2}, {3, 16}};
  rule.compare = MailPolicy::Compare::Both;
  rule.actions = "10000000000000000";
  rule.quarantine = 9;
  rule.recipients = 2;
  rule.reply = "no";
  rule.tag = "tag";
  rule.headerValue = "value";
  rule.address = "a@b.test";
  policy.rules = {rule, MailPolicy::Rule()};
  policy.entities = {{1, "*@example.test"}};
  MailPolicy::Group large{3, "large", {}};
  for (int i = 0; i < 2500; ++i) {
    large.members.add("user" + std::to_string(i) + "@example.test");
  }
  policy.groups = {{2, "empty", {}}, large};
  policy.objects = {{9, 3, "area", std::string("a\0b", 3)}, {10, -7, "", ""}};
  policy.filterOrder = {true, {{-2147483648, 77, "Virus"}, {2147483647, 0, ""}}};
  return policy;
}

TEST(SnapshotReading, comesBackAsItWasWritten) {
  for (const MailPolicy& policy : {wholePolicy(), MailPolicy()}) {
    const MailPolicy read = policyInSnapshot(snapshotText(policy));
    EXPECT_EQ(read.version, policy.version);
    ASSERT_EQ(read.groups.size(), policy.groups.size());
    ASSERT_EQ(read.rules.size(), policy.rules.size());
    // The texts have every field.
    EXPECT_EQ(snapshotBody(snapshotText(read)), snapshotBody(snapshotText(policy)));
  }
  const MailPolicy read = policyInSnapshot(snapshotText(wholePolicy()));
  EXPECT_EQ(read.rules[0].id, 4294967294U);
  EXPECT_EQ(read.rules[0].name, "l\xc3\xa4nge \"x\" \\ \n\t");
  EXPECT_FALSE(read.rules[1].scope);
  EXPECT_EQ(read.groups[1].members.size(), 2500u);
  EXPECT_EQ(read.groups[1].members[2499], "user2499@example.test");
  EXPECT_EQ(read.objects[0].content, std::string("a\0b", 3));
  EXPECT_EQ(read.filterOrder.groups[0].rank, -2147483647 - 1);
}

TEST(SnapshotReading, everyLineCounts) {
  const std::vector<std::string> whole = linesOf(snapshotText(wholePolicy()));
  ASSERT_EQ(refusalOf(joined(whole)), "");
  for (std::size_t at = 0; at < whole.size(); ++at) {
    std::vector<std::string> lacking = whole;
    lacking.erase(lacking.begin() + static_cast<std::ptrdiff_t>(at));
    EXPECT_NE(refusalOf(joined(lacking)), "") << at;
    EXPECT_NE(refusalOf(joined({whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(at)})), "") << at;
    if (at + 1 < whole.size()) {
      std::vector<std::string> swapped = whole;
      std::swap(swapped[at], swapped[at + 1]);
      EXPECT_NE(refusalOf(joined(swapped)), "") << at;
    }
  }
}

TEST(SnapshotReading, isRefusedUnlessItIsWhole) {
  const std::string text = snapshotText(wholePolicy());
  std::string changed = text;
  changed.replace(changed.find("user7@"), 5, "user8");
  const std::size_t tail = text.rfind("{\"sha256\"");
  for (const std::string& broken : {std::string(), changed, text.substr(0, tail), text.substr(tail),
                                    std::string("[]\n"), text.substr(0, text.size() / 2), "x" + text}) {
    EXPECT_NE(refusalOf(broken), "") << broken.substr(0, 100);
  }
}

TEST(SnapshotReading, everyByteCounts) {
  MailPolicy small = wholePolicy();
  small.groups[1].members = {"a@example.test", "b@example.test"};
  const std::string whole = snapshotText(small);
  for (std::size_t at = 0; at + 1 < whole.size(); ++at) {
    std::string changed = whole;
    changed[at] = static_cast<char>(static_cast<unsigned char>(changed[at]) ^ 1U);
    EXPECT_NE(refusalOf(changed), "") << at;
    EXPECT_NE(refusalOf(whole.substr(0, at)), "") << at;
  }
}

TEST(SnapshotReading, nothingStandsBehindTheTail) {
  EXPECT_NE(refusalOf(snapshotText(wholePolicy()) + "{\"rule\":1}\n"), "");
  EXPECT_NE(refusalOf(snapshotText(wholePolicy()) + "\n"), "");
}

struct HostileRow {
  const char* label;
  const char* head;
  const char* line;  // in place of everything between head and tail
};

// With a right digest, as somebody can make it who may write the file.
const HostileRow kHostile[] = {
    {"another format", R"({"format":2,"version":1,"rules":0,"entities":0,"groups":0,"members":0,"objects":0})", nullptr},
    {"no format", R"({"version":1,"rules":0,"entities":0,"groups":0,"members":0,"objects":0})", nullptr},
    {"format of another type",
     R"({"format":"1","version":1,"rules":0,"entities":0,"groups":0,"members":0,"objects":0})", nullptr},
    {"head that is no object", "[1]", nullptr},
    {"negative version", R"({"format":1,"version":-1,"rules":0,"entities":0,"groups":0,"members":0,"objects":0})",
     nullptr},
    {"version with a fraction",
     R"({"format":1,"version":1.5,"rules":0,"entities":0,"groups":0,"members":0,"objects":0})", nullptr},
    {"other totals", R"({"format":1,"version":1,"rules":5,"entities":0,"groups":0,"members":0,"objects":0})", nullptr},
    {"line that is no object", nullptr, "[]"},
    {"line of unknown kind", nullptr, R"({"unknown":1})"},
    {"members before a group", nullptr, R"({"members":["a@b"]})"},
    {"negative identifier", R"({"format":1,"version":1,"rules":0,"entities":1,"groups":0,"members":0,"objects":0})",
     R"({"entity":-1,"pattern":"x"})"},
    {"identifier beyond 32 bits", R"({"format":1,"version":1,"rules":0,"entities":1,"groups":0,"members":0,"objects":0})",
     R"({"entity":4294967297,"pattern":"x"})"},
    {"identifier with a fraction", R"({"format":1,"version":1,"rules":0,"entities":1,"groups":0,"members":0,"objects":0})",
     R"({"entity":1.5,"pattern":"x"})"},
    {"identifier that is true", R"({"format":1,"version":1,"rules":0,"entities":1,"groups":0,"members":0,"objects":0})",
     R"({"entity":true,"pattern":"x"})"},
    {"text that is a number", R"({"format":1,"version":1,"rules":0,"entities":1,"groups":0,"members":0,"objects":0})",
     R"({"entity":1,"pattern":2})"},
    {"no UTF-8", R"({"format":1,"version":1,"rules":0,"entities":1,"groups":0,"members":0,"objects":0})",
     "{\"entity\":1,\"pattern\":\"\xff\"}"},
};

TEST(SnapshotReading, hostileLinesAreRefusedThoughTheDigestIsRight) {
  for (const HostileRow& row : kHostile) {
    const std::string head =
        row.head != nullptr ? row.head
                            : R"({"format":1,"version":1,"rules":0,"entities":0,"groups":0,"members":0,"objects":0})";
    const std::string body = row.line != nullptr ? std::string(row.line) + "\n" : "";
    const std::string order = R"({"order":{"manual":false,"groups":[]}})";
    EXPECT_NE(refusalOf(withSnapshotTail(head + "\n" + body + order + "\n")), "") << row.label;
  }
}

// A further key makes the head grow, and what it holds be copied.
TEST(SnapshotReading, deepNestingIsRefused) {
  const std::string deep = std::string(200000, '[') + std::string(200000, ']');
  const std::string rest = R"(,"version":1,"rules":0,"entities":0,"groups":0,"members":0,"objects":0})";
  const std::string head = R"({"format":1)" + rest + "\n";
  for (const std::string& text :
       {std::string(200000, '['), deep, R"({"format":)" + deep + rest, head + R"({"rule":)" + deep + R"(,"name":"x"})",
        head + R"({"name":"\"]]\\","rule":)" + deep + R"(,"position":1})"}) {
    EXPECT_NE(refusalOf(text).find("more than 8 levels deep"), std::string::npos) << text.substr(0, 100);
  }
}

TEST(SnapshotReading, bracketsInTextsAreNoNesting) {
  MailPolicy policy = wholePolicy();
  policy.rules[0].name = "[[[[[[[[[[\"{{{{{{{{{{\\";
  policy.groups[1].members = {"\"[[[[[[[[[[\"@b.test", "\\\"{{{{{{{{{{@b.test"};
  EXPECT_EQ(snapshotBody(snapshotText(policyInSnapshot(snapshotText(policy)))), snapshotBody(snapshotText(policy)));
}

}  // namespace
