// zaroctl lint: each mistake is found, and what is suggested is what was meant.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/resource.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "programs/Program.h"
#include "support/TemporaryDirectory.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using zarotest::linesOf;
using zarotest::ProgramResult;
using zarotest::zaroctl;
using Json = nlohmann::json;

struct Wanted {
  std::size_t tree;
  std::size_t line;
  const char* rule;
  const char* reason;      // a part of it
  const char* suggestion;  // a part of it
};

struct LintCase {
  const char* label;
  std::vector<std::string> trees;  // texts of the files
  std::vector<Wanted> want;
};

constexpr const char* kNameAndDomain = "the name and the domain that are meant, NAME@DOMAIN";
constexpr const char* kNoPartOfAName = "none stands for a part of a name: write out each name";
constexpr const char* kNoPartOfALabel = "none stands for a part of a label: write out each domain";
constexpr const char* kNothingLeftOfAStar = "none has a label left of a *: write out each domain";

const LintCase kLintCases[] = {
    {"nothing wrong",
     {"# fine\nuser@example.test\n*@a.test\nuser@*.a.test\n*@*.b.test\nuser@*\n*\n", "*@*.c.test\t8\n"},
     // The first tree's "*" always decides.
     {{0, 7, "catch-all", "matches every address, and kind 1 lets mail pass", "are to pass"},
      {1, 1, "never-decides", "an earlier tree always decides, by \"*\" (", "put its tree first"}}},
    {"nothing wrong in several trees",
     {"user@example.test\n", "*@example.test\t2\n", "*@*.test\t8\n", "*@*.test\t16\n"},
     {}},
    {"no at", {"example.test\n"}, {{0, 1, "no-at", "*@DOMAIN is a domain, *@*.DOMAIN its sub-domains", "*@example.test"}}},
    {"no at, leading dot", {".example.test\n"}, {{0, 1, "no-at", "never matches mail", "*@*.example.test"}}},
    {"no at, wildcard", {"*.example.test\n"}, {{0, 1, "no-at", "never matches mail", "*@*.example.test"}}},
    {"no at, star before a label",
     {"*example.test\n"},
     {{0, 1, "no-at", "never matches mail", "*@example.test and *@*.example.test"}}},
    {"no at, one word", {"user\n"}, {{0, 1, "no-at", "never matches mail", kNameAndDomain}}},
    {"no at, stars only", {"**\n"}, {{0, 1, "no-at", "never matches mail", kNameAndDomain}}},
    {"no at, a host's number", {"192.0.2.1\n"}, {{0, 1, "no-at", "never matches mail", kNameAndDomain}}},
    {"no name", {"@example.test\n"}, {{0, 1, "empty-name", "nothing before the @", "*@example.test"}}},
    {"no name, leading dot",
     {"@.example.test\n"},
     {{0, 1, "empty-name", "nothing", "*@*.example.test"}, {0, 1, "empty-label", "", "*@*.example.test"}}},
    {"no name at any domain", {"@*\n"}, {{0, 1, "empty-name", "nothing before the @", "the name that is meant"}}},
    {"star in a name", {"us*@example.test\n"}, {{0, 1, "literal-star", "taken literally", kNoPartOfAName}}},
    {"star behind a name", {"user+*@a.test\n"}, {{0, 1, "literal-star", "taken literally", kNoPartOfAName}}},
    {"star before a name", {"*=pkginfo@ups.test\n"}, {{0, 1, "literal-star", "taken literally", kNoPartOfAName}}},
    {"two stars for a name", {"**@example.test\n"}, {{0, 1, "literal-star", "taken literally", "*@example.test"}}},
    {"star in a label",
     {"user@*example.test\n"},
     {{0, 1, "literal-star", "of a label is taken literally", "user@example.test and user@*.example.test"}}},
    {"star behind a label", {"user@a*.test\n"}, {{0, 1, "literal-star", "of a label is taken literally", kNoPartOfALabel}}},
    {"left of a star",
     {"user@a.*.test\n"},
     {{0, 1, "left-of-star", "labels left of a * are ignored", kNothingLeftOfAStar}}},
    {"two stars", {"user@*.*.test\n"}, {{0, 1, "left-of-star", "labels left of a * are ignored", kNothingLeftOfAStar}}},
    {"whatever is left of a star", {"user@a*..b.*.test\n"}, {{0, 1, "left-of-star", "ignored", kNothingLeftOfAStar}}},
    {"empty label", {"user@a..test\n"}, {{0, 1, "empty-label", "an empty label", "the domain that is meant"}}},
    {"trailing dot", {"user@a.test.\n"}, {{0, 1, "empty-label", "an empty label", "user@a.test"}}},
    {"leading dot", {"user@.a.test\n"}, {{0, 1, "empty-label", "an empty label", "user@*.a.test"}}},
    {"no domain", {"user@\n"}, {{0, 1, "empty-label", "an empty label", "the domain that is meant"}}},
    {"blank",
     {"user@a.test \n user@b.test\n"},
     {{0, 1, "blank", "a blank", "user@a.test"}, {0, 2, "blank", "a blank", "user@b.test"}}},
    {"blank inside", {"user @a.test\n"}, {{0, 1, "blank", "a blank", "one pattern a line"}}},
    {"kind behind a blank", {"user@a.test 2\n"}, {{0, 1, "blank", "a blank", "a tab before a kind"}}},
    {"word behind a blank", {"user@a.test REJECT\n"}, {{0, 1, "blank", "a blank", "one pattern a line"}}},
    {"two patterns with a blank", {"user@a.test *@b.test\n"}, {{0, 1, "blank", "a blank", "user@a.test and *@b.test"}}},
    {"comment", {"user@a.test # comment\n"}, {{0, 1, "comment", "a comment behind a pattern", "user@a.test"}}},
    {"comment without a blank", {"user@a.test#comment\n"}, {{0, 1, "comment", "a comment behind", "user@a.test"}}},
    {"comment of another list", {"; *@a.test\n"}, {{0, 1, "comment", "a comment behind", "begin with #"}}},
    {"comments of other lists",
     {"user@a.test // one\n*@b.test ; two\n"},
     {{0, 1, "comment", "a comment behind", "user@a.test"}, {0, 2, "comment", "a comment behind", "*@b.test"}}},
    {"comment behind a mistake",
     {"example.test # a domain\n"},
     {{0, 1, "comment", "a comment behind", "*@example.test"}, {0, 1, "no-at", "", "*@example.test"}}},
    {"hash in a name", {"a#b@example.test\n"}, {}},
    {"angle brackets", {"<user@a.test>\n"}, {{0, 1, "brackets", "parts of the pattern", "user@a.test"}}},
    {"display name", {"Some Body <user@a.test>\n"}, {{0, 1, "brackets", "parts of the pattern", "user@a.test"}}},
    {"quotes", {"\"user@a.test\"\n"}, {{0, 1, "brackets", "parts of the pattern", "user@a.test"}}},
    {"empty sender", {"<>\n"}, {}},
    {"at in quotes", {"\"a@b\"@c.test\n"}, {{0, 1, "second-at", "at the first @", "\"a%40b\"@c.test"}}},
    {"half a pair of brackets", {"user@<a.test\n"}, {{0, 1, "brackets", "parts of the pattern", "the address alone"}}},
    {"regular expression",
     {"/^.*@spam\\.test$/\n"},
     {{0, 1, "regular-expression", "no regular expressions", "no pattern says it"}}},
    {"regular expression with a flag", {"/spam/i\n"}, {{0, 1, "regular-expression", "no regular", "no pattern says it"}}},
    {"regular expression without slashes",
     {"user@a\\.test\n^user@a.test\n"},
     {{0, 1, "regular-expression", "no regular", "no pattern"}, {0, 2, "regular-expression", "no regular", "no pattern"}}},
    {"question mark", {"us?r@a.test\n"}, {{0, 1, "literal-question-mark", "taken literally", "no pattern says it"}}},
    {"question mark in a domain",
     {"user@?.test\n"},
     {{0, 1, "literal-question-mark", "taken literally", "no pattern says it"}}},
    {"second at", {"user@a.test,user@b.test\n"}, {{0, 1, "second-at", "at the first @", "user@a.test and user@b.test"}}},
    {"negation", {"!x@a.test\n"}, {{0, 1, "negation", "excepts nothing", "no pattern says it"}}},
    {"negation by a dash", {"-x@a.test\n"}, {{0, 1, "negation", "excepts nothing", "no pattern says it"}}},
    {"negation behind a pattern", {"*@a.test !bad@a.test\n"}, {{0, 1, "blank", "a blank", "one pattern a line"}}},
    {"negation behind a comma", {"*@a.test, -bad@a.test\n"}, {{0, 1, "blank", "a blank", "one pattern a line"}}},
    {"address before brackets",
     {"user@a.test <*@b.test>\n"},
     {{0, 1, "brackets", "parts of the pattern", "the address alone"}}},
    {"second at of one pattern", {"user@a@b.test\n"}, {{0, 1, "second-at", "at the first @", "one pattern a line"}}},
    {"comma at the end", {"user@a.test,\n"}, {{0, 1, "odd-character", "no mail address", "user@a.test"}}},
    {"odd character in a name",
     {"mailto:user@a.test\n"},
     {{0, 1, "odd-character", "no mail address", "the address alone"}}},
    {"address of a host", {"user@[192.0.2.1]\n"}, {}},
    {"beyond ASCII",
     {"user@b\xc3\xbc"
      "cher.test\n"},
     {{0, 1, "non-ascii", "beyond ASCII", "user@xn--bcher-kva.test"}}},
    {"beyond ASCII in a name", {"b\xc3\xbc@a.test\n"}, {{0, 1, "non-ascii", "beyond ASCII", "each letter case"}}},
    {"several things",
     {"@a..t*st \n"},
     {{0, 1, "blank", "a blank", "one pattern a line"},
      {0, 1, "empty-name", "nothing before", "the name that is meant"},
      {0, 1, "literal-star", "of a label", kNoPartOfALabel},
      {0, 1, "empty-label", "an empty label", "the domain that is meant"}}},
    {"catch-alls that let pass",
     {"*@*\n", "*@*.*\t8\n"},
     {{0, 1, "catch-all", "matches every address, and kind 1 lets", ""},
      {1, 1, "left-of-star", "", ""},
      {1, 1, "never-decides", "", ""},
      {1, 1, "catch-all", "matches every address, and kind 8 lets", ""}}},
    {"catch-alls that stop mail", {"*\t2\n", "*@*\t4\n"}, {{1, 1, "never-decides", "", ""}}},
    {"catch-all of no kind", {"*\t0\n"}, {{0, 1, "no-single-kind", "", ""}}},
    {"given twice", {"user@a.test\nUSER@a.test\n"}, {{0, 2, "given-twice", "given before, in ", "remove one"}}},
    {"two texts", {"*\t2\n*@*\t2\n"}, {{0, 2, "two-texts", "the same pattern as \"*\" of ", "one text for both"}}},
    {"two texts, ignored labels",
     {"user@*.test\nuser@a.*.test\n"},
     {{0, 2, "left-of-star", "ignored", kNothingLeftOfAStar},
      {0, 2, "two-texts", "the same pattern as \"user@*.test\" of ", "one text for both"}}},
    {"refused second kind",
     {"user@a.test\nuser@a.test\t2\n"},
     {{0, 2, "refused-kind", "kind 2 is refused: the pattern has kind 1 from ", "another tree"}}},
    {"refused kind",
     {"user@a.test\t64\n"},
     {{0, 1, "refused-kind", "kind 64 is refused: no pattern may have it", "one of 1, 2, 4, 8, 16, 32"}}},
    {"refused kind, then none",
     {"user@a.test\t64\nuser@a.test\t0\n"},
     {{0, 1, "refused-kind", "kind 64 is refused", "one of 1, 2, 4, 8, 16, 32"},
      {0, 2, "given-twice", "given before, in ", "remove one"}}},
    {"combined kinds",
     {"user@a.test\nuser@a.test\t16\n"},
     {{0, 2, "no-single-kind", "never decides; ignored: it has kinds 1 and 16 together", "one kind a tree"}}},
    {"unknown kind",
     {"user@a.test\t256\n"},
     {{0, 1, "no-single-kind", "kind 256 has no part in decisions", "one kind a tree"}}},
    {"bad line",
     {"user@a.test\tx\nuser@b.test\n"},
     {{0, 1, "bad-line", "\"x\" behind the tab is no kind", "a tab and a number"}}},
    {"kind without a pattern",
     {"\t1\n  \t2\nuser@b.test\n"},
     {{0, 1, "bad-line", "a kind without a pattern", "PATTERN"}, {0, 2, "bad-line", "a kind without", "PATTERN"}}},
    {"byte order mark",
     {"\xEF\xBB\xBFuser@b.test\n\xEF\xBB\xBFu@a.test\n"},
     {{0, 2, "non-ascii", "beyond ASCII", "each letter case"}}},
    {"lighter, of the other kind",
     {"u@p.q.*.test\t1\nu@*.example.test\t2\n"},
     {{0, 1, "left-of-star", "ignored", kNothingLeftOfAStar},
      {0, 2, "never-decides", "of the other kind; it only adds 128 to the code", "keep it where that is wanted"}}},
    {"lighter, of the same kind",
     {"u@p.q.*.test\t1\nu@*.example.test\t1\n"},
     {{0, 1, "left-of-star", "ignored", kNothingLeftOfAStar},
      {0, 2, "never-decides", "always behind \"u@p.q.*.test\" (", "remove it"}}},
    {"as heavy, of the other kind",
     {"u@p.*.test\t1\nu@*.example.test\t2\n"},
     {{0, 1, "left-of-star", "ignored", kNothingLeftOfAStar},
      {0, 2, "always-tied", "always as heavy as \"u@p.*.test\" (", "one of the two kinds"}}},
    {"as heavy, of the other kind, and giving the data",
     {"u@p.*.test\t2\nu@*.example.test\t1\n"},
     {{0, 1, "left-of-star", "ignored", kNothingLeftOfAStar},
      {0, 2, "always-tied", "always as heavy as \"u@p.*.test\" (", "one of the two kinds"}}},
    {"as heavy in the second tier",
     {"*@a.test\t8\n", "*@a.test\t4\n"},
     {{1, 1, "always-tied", "always as heavy as \"*@a.test\" (", "one of the two kinds"}}},
    {"idle exception",
     {"*@*.test\t8\n", "*@*.other.test\t16\n"},
     {{1, 1, "idle-exception", "no earlier tree has the same text", "the very text"}}},
    {"exception before its kind",
     {"*@*.test\t16\n", "*@*.test\t8\n"},
     {{0, 1, "idle-exception", "takes nothing back", "in a later tree"}}},
    {"exception with another text for the same leaf",
     {"user@*.test\t4\n", "user@a.*.test\t32\n"},
     {{1, 1, "left-of-star", "ignored", kNothingLeftOfAStar}, {1, 1, "idle-exception", "same text", "the very text"}}},
    {"earlier tree",
     {"*@example.test\t2\n", "user@example.test\t1\n"},
     {{1, 1, "never-decides", "an earlier tree always decides, by \"*@example.test\" (", "remove it"}}},
    {"earlier tree, for a wildcard",
     {"*@*.test\t2\n", "user@*.example.test\t1\nuser@test\n"},
     {{1, 1, "never-decides", "an earlier tree always decides", "remove it"}}},
    {"first tier of a later tree",
     {"user@example.test\t8\n", "*@example.test\t2\n"},
     {{0, 1, "never-decides", "the first tier always decides, by \"*@example.test\" (", "remove it, or give it kind 1"}}},
    {"first tier, beside a refused kind",
     {"user@example.test\t8\n*@example.test\t2\nUSER@example.test\t1\n"},
     {{0, 1, "never-decides", "the first tier always decides",
       "remove it and what is refused of the pattern, or give it kind 1"},
      {0, 3, "refused-kind", "kind 1 is refused: the pattern has kind 8 from ", "remove one"}}},
    {"same weight before",
     {"*@example.test\t8\n", "*@example.test\t8\n"},
     {{1, 1, "never-decides", "always behind \"*@example.test\" (", "remove it"}}},
};

class Lint : public testing::Test {
 protected:
  zarotest::TemporaryDirectory m_directory;
};

TEST_F(Lint, everyMistakeIsFoundWithItsPlaceReasonAndSuggestion) {
  for (const LintCase& test : kLintCases) {
    std::vector<std::string> arguments = {"lint", "--json"};
    std::vector<std::string> files;
    for (std::size_t tree = 0; tree != test.trees.size(); ++tree) {
      files.push_back(m_directory.write("tree" + std::to_string(tree), test.trees[tree]));
      arguments.push_back(files.back());
    }
    const ProgramResult result = zaroctl(arguments);
    EXPECT_EQ(result.status, test.want.empty() ? 0 : 1) << test.label;
    EXPECT_EQ(result.err, "") << test.label;
    const Json found = Json::parse(result.out);
    EXPECT_EQ(found.size(), test.want.size()) << test.label << result.out;
    for (std::size_t i = 0; i != std::min(found.size(), test.want.size()); ++i) {
      const Wanted& want = test.want[i];
      EXPECT_EQ(found[i]["file"], files[want.tree]) << test.label;
      EXPECT_EQ(found[i]["line"], want.line) << test.label;
      EXPECT_EQ(found[i]["rule"], want.rule) << test.label;
      EXPECT_THAT(found[i]["reason"].get<std::string>(), HasSubstr(want.reason)) << test.label;
      EXPECT_THAT(found[i]["suggestion"].get<std::string>(), HasSubstr(want.suggestion)) << test.label;
    }
  }
}

TEST_F(Lint, printsOneLineForEachFinding) {
  const std::string file = m_directory.write("list", "fine@example.test\nexample.test\n");
  const ProgramResult result = zaroctl({"lint", file + ":2"});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(
      linesOf(result.out),
      ElementsAre(
          file +
          ":2\texample.test\tno-at\twithout an @ it never matches mail; *@DOMAIN is a domain, *@*.DOMAIN its sub-domains\t*@example.test"));
}

TEST_F(Lint, findingsAreInTheOrderOfTheFiles) {
  const std::string first = m_directory.write("z", "*@b.test\t2\nuser@b.test\t8\nbare\n");
  const std::string second = m_directory.write("a", "user@b.test\nbare\n");
  const auto lines = linesOf(zaroctl({"lint", first + "," + second + ":2", first}).out);
  std::vector<std::string> places;
  for (const std::string& line : lines) {
    places.push_back(line.substr(0, line.find('\t')));
  }
  EXPECT_THAT(places, ElementsAre(first + ":2", first + ":3", second + ":1", second + ":2", second + ":2", first + ":1",
                                  first + ":2", first + ":3", first + ":3"));
}

TEST_F(Lint, suggestedPatternsAreListedForPrograms) {
  const std::string file = m_directory.write("list", "user@*example.test\nus*@example.test\nuser@a.test\nuser@a.test\n");
  const Json found = Json::parse(zaroctl({"lint", "--json", file}).out);
  ASSERT_EQ(found.size(), 3u);
  EXPECT_EQ(found[0]["patterns"], (Json{"user@example.test", "user@*.example.test"}));
  EXPECT_EQ(found[1]["patterns"], Json::array());
  EXPECT_EQ(found[2]["patterns"], Json::array());
}

TEST_F(Lint, commandLineSaysWhichKindsLetPass) {
  const std::string file = m_directory.write("list", "*\n");
  struct Case {
    const char* passing;
    const char* kind;
    int status;
  };
  for (const Case& test : {Case{"A", "1", 1},
                           {"A", "8", 1},
                           {"A", "2", 0},
                           {"A", "4", 0},
                           {"B", "2", 1},
                           {"B", "4", 1},
                           {"B", "1", 0},
                           {"B", "8", 0},
                           {"none", "1", 0},
                           {"none", "2", 0}}) {
    const ProgramResult result = zaroctl({"lint", "--passing", test.passing, file + ":" + test.kind});
    EXPECT_EQ(result.status, test.status) << test.passing << " " << test.kind << result.out << result.err;
  }
  EXPECT_EQ(zaroctl({"lint", "--passing", "C", file}).status, 64);
}

// A call for each label would need megabytes of it.
constexpr rlim_t kSmallStack = 1024 * 1024;

// The program inherits it.
class SmallStack {
 public:
  SmallStack() {
    getrlimit(RLIMIT_STACK, &m_before);
    rlimit small = m_before;
    small.rlim_cur = kSmallStack;
    setrlimit(RLIMIT_STACK, &small);
  }
  ~SmallStack() { setrlimit(RLIMIT_STACK, &m_before); }
  SmallStack(const SmallStack&) = delete;
  SmallStack& operator=(const SmallStack&) = delete;

 private:
  rlimit m_before = {};
};

TEST_F(Lint, lineOfThousandsOfLabelsIsLikeAnyOther) {
  const SmallStack smallStack;
  const std::string dots = "u@" + std::string(65000, '.');
  std::string labels = "u@a";
  while (labels.size() < 65000) {
    labels += ".a";
  }
  const std::string file = m_directory.write("list", dots + "\n" + labels + "\n");
  const ProgramResult lint = zaroctl({"--json", "lint", file});
  EXPECT_EQ(lint.status, 1) << lint.err;
  const Json found = Json::parse(lint.out);
  ASSERT_EQ(found.size(), 1u);
  EXPECT_EQ(found[0]["rule"], "empty-label");
  EXPECT_EQ(found[0]["line"], 1);
  for (const std::string& address : {dots, labels}) {
    const ProgramResult match = zaroctl({"--json", "match", "--literal", "--tree", file, address});
    EXPECT_EQ(match.status, 0) << match.err;
    EXPECT_EQ(Json::parse(match.out)["pattern"], address);
  }
}

TEST_F(Lint, longestLineMayEndWithTwoBytes) {
  const std::string longest = "u@" + std::string(65534, 'a');
  for (const char* end : {"", "\n", "\r\n"}) {
    EXPECT_EQ(zaroctl({"lint", m_directory.write("list", longest + end)}).status, 0) << end;
    const ProgramResult longer = zaroctl({"lint", m_directory.write("list", longest + "a" + end)});
    EXPECT_EQ(longer.status, 1);
    EXPECT_THAT(longer.out, HasSubstr("longer than 65536 bytes")) << end;
  }
}

// The public suffix list (Debian: package publicsuffix, which scripts/packages names).
constexpr const char* kPublicSuffixes = "/usr/share/publicsuffix/public_suffix_list.dat";

TEST_F(Lint, publicSuffixListLoadsIsLintedAndMatches) {
  std::ifstream list(kPublicSuffixes);
  ASSERT_TRUE(list) << kPublicSuffixes << " is not there";
  std::string suffixes;
  std::string exceptions;
  std::string addresses;
  std::size_t patterns = 0;
  std::size_t beyondAscii = 0;
  for (std::string line; std::getline(list, line);) {
    const std::string rule = line.substr(0, line.find_first_of(" \t"));
    if (rule.empty() || rule.rfind("//", 0) == 0) {
      continue;
    }
    if (rule[0] == '!') {
      exceptions += "*@" + rule.substr(1) + "\n";
      addresses += "user@" + rule.substr(1) + "\n";
      continue;
    }
    ++patterns;
    const bool isAscii = std::all_of(rule.begin(), rule.end(),
                                     [](char character) { return static_cast<unsigned char>(character) < 128; });
    beyondAscii += isAscii ? 0 : 1;
    suffixes += "*@" + rule + "\n";
    addresses += "user@" + (rule[0] == '*' ? "some" + rule.substr(1) : rule) + "\n";
  }
  EXPECT_GT(patterns, 5000u);
  EXPECT_GT(beyondAscii, 100u);

  const std::string suffixFile = m_directory.write("suffixes", suffixes) + ":2";
  const std::string exceptionFile = m_directory.write("exceptions", exceptions) + ":1";
  const ProgramResult lint = zaroctl({"--json", "lint", exceptionFile, suffixFile});
  EXPECT_EQ(lint.status, 1);
  const Json found = Json::parse(lint.out);
  for (const Json& finding : found) {
    EXPECT_EQ(finding["rule"], "non-ascii") << finding;
  }
  EXPECT_EQ(found.size(), beyondAscii);

  zarotest::ProgramRun run;
  run.input = addresses;
  run.outputFile = m_directory.path("answers");  // more than a pipe holds while the input is being written
  const ProgramResult match = zaroctl({"--json", "match", "--tree", exceptionFile, "--tree", suffixFile, "-"}, run);
  EXPECT_EQ(match.status, 0) << match.err;
  std::ifstream file(run.outputFile);
  const std::string answersText{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  const auto asked = linesOf(addresses);
  const auto answers = linesOf(answersText);
  ASSERT_EQ(answers.size(), asked.size());
  for (std::size_t i = 0; i != asked.size(); ++i) {
    const Json answer = Json::parse(answers[i]);
    const bool isException = exceptions.find("*" + asked[i].substr(4) + "\n") != std::string::npos;
    EXPECT_EQ(answer["code"], isException ? 1 : 2) << asked[i];
    EXPECT_EQ(answer["tree_index"], isException ? 0 : 1) << asked[i];
  }
}

TEST_F(Lint, unreadableFileIsAFailure) {
  const ProgramResult result = zaroctl({"lint", m_directory.path("none")});
  EXPECT_EQ(result.status, 74);
  EXPECT_THAT(result.err, HasSubstr("none: cannot open"));
  EXPECT_EQ(zaroctl({"lint"}).status, 64);
}

}  // namespace
