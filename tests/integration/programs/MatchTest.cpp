// zaroctl match: decisions, their reasons, totals and differences, from files, groups and standard input.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>
#include <vector>

#include "programs/ProgramTest.h"
#include "support/TemporaryDirectory.h"

namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;
using zarotest::linesOf;
using zarotest::ProgramResult;
using zarotest::ProgramRun;
using zarotest::zaroctl;
using Json = nlohmann::json;
using Words = std::vector<std::string>;

// Two lists: who may write, and who may not.
class Match : public testing::Test {
 protected:
  Match() {
    m_allow = m_directory.write("allow", "# always\nuser@example.test\n\n  \t\n*@*.partner.test\t8\n");
    m_block = m_directory.write("block", "*@example.test\r\n*@*.spam.test\r\n*@late.partner.test\t4\n");
    m_exceptions = m_directory.write("exceptions", "*@*.partner.test\n");
  }

  // A file as the tree of a kind.
  static std::string tree(const std::string& path, int kind) { return path + ":" + std::to_string(kind); }

  Words command(const Words& more) const {
    Words words = {"match", "--tree", tree(m_allow, 1), "--tree", tree(m_block, 2)};
    words.insert(words.end(), more.begin(), more.end());
    return words;
  }
  ProgramResult match(const Words& more) const { return zaroctl(command(more)); }
  ProgramResult matchInput(const Words& more, const std::string& input) const {
    ProgramRun run;
    run.input = input;
    Words words = command(more);
    words.emplace_back("-");
    return zaroctl(words, run);
  }

  zarotest::TemporaryDirectory m_directory;
  std::string m_allow;
  std::string m_block;
  std::string m_exceptions;
};

TEST_F(Match, printsCodePatternKindAndTreeOfEachAddress) {
  const ProgramResult result =
      match({"User@Example.test", "x@a.spam.test", "x@a.partner.test", "x@late.partner.test", "other@example.test"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(linesOf(result.out),
              ElementsAre("User@Example.test\t1\tuser@example.test\t1\t" + tree(m_allow, 1) + "\tuser@example.test",
                          "x@a.spam.test\t2\t*@*.spam.test\t2\t" + tree(m_block, 2) + "\tx@a.spam.test",
                          "x@a.partner.test\t1\t*@*.partner.test\t8\t" + tree(m_allow, 1) + "\tx@a.partner.test",
                          "x@late.partner.test\t2\t*@late.partner.test\t4\t" + tree(m_block, 2) + "\tx@late.partner.test",
                          "other@example.test\t2\t*@example.test\t2\t" + tree(m_block, 2) + "\tother@example.test"));
  EXPECT_EQ(result.err, "");
}

TEST_F(Match, addressThatNothingDecidesMakesTheStatusOne) {
  const ProgramResult result = match({"x@nowhere.test", "user@example.test"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(linesOf(result.out)[0], "x@nowhere.test\t0\t-\t-\t-\tx@nowhere.test");
}

TEST_F(Match, everyLineOfStandardInputHasItsLineOfTheOutput) {
  const ProgramResult result = matchInput({}, "user@example.test\r\n\n \nx@a.spam.test");
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(linesOf(result.out), ElementsAre(StartsWith("user@example.test\t1\t"), "\t0\t-\t-\t-\t-",
                                               " \t0\t-\t-\t-\t-", StartsWith("x@a.spam.test\t2\t")));
  EXPECT_THAT(matchInput({"--count"}, "user@example.test\n\n").out, HasSubstr("addresses\t1\n"));
  EXPECT_EQ(matchInput({}, "").status, 0);
}

TEST_F(Match, unreadableLinesAreToldAndHaveTheirLinesToo) {
  std::string input = "user@example.test\n" + std::string(70000, 'x') + "\n";
  input += "a";
  input += '\0';
  input += "b\nx@a.spam.test\n";
  const ProgramResult result = matchInput({}, input);
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(linesOf(result.out), ElementsAre(StartsWith("user@"), "-\t0\t-\t-\t-\t-", "-\t0\t-\t-\t-\t-",
                                               StartsWith("x@a.spam.test\t2\t")));
  EXPECT_THAT(linesOf(result.err), ElementsAre("zaroctl: standard input:2: longer than 65536 bytes",
                                               "zaroctl: standard input:3: a NUL in a text"));
  EXPECT_THAT(matchInput({"--count"}, input).out, HasSubstr("unreadable\t2\n"));
}

TEST_F(Match, longestLineIsTaken) {
  const std::string name(65536 - std::string("@a.spam.test").size(), 'x');
  EXPECT_EQ(matchInput({"--count"}, name + "@a.spam.test\n").status, 0);
}

// A program that asks through a pipe and waits for the answer gets it.
TEST_F(Match, answerComesBeforeTheNextAddress) {
  const std::string script =
      m_directory.write("ask", "coproc match { '" ZAROCTL_PATH "' match --tree '" + m_allow +
                                   "' -; }; for address in user@example.test other@example.test; do"
                                   " echo $address >&${match[1]}; read -r -t 30 answer <&${match[0]} || exit 1;"
                                   " echo \"$answer\"; done");
  std::FILE* shell = popen(("bash '" + script + "'").c_str(), "r");
  ASSERT_NE(shell, nullptr);
  std::string answers;
  for (int character = std::fgetc(shell); character != EOF; character = std::fgetc(shell)) {
    answers += static_cast<char>(character);
  }
  EXPECT_EQ(pclose(shell), 0);
  const auto lines = linesOf(answers);
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_THAT(lines[0], StartsWith("user@example.test\t1\t"));
  EXPECT_THAT(lines[1], StartsWith("other@example.test\t0\t"));
}

TEST_F(Match, jsonIsOneObjectALine) {
  const ProgramResult result = match({"--json", "user@example.test", "\"q\"@nowhere.test"});
  const auto lines = linesOf(result.out);
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(Json::parse(lines[0]), (Json{{"address", "user@example.test"},
                                         {"asked", "user@example.test"},
                                         {"code", 1},
                                         {"pattern", "user@example.test"},
                                         {"kind", 1},
                                         {"tree", tree(m_allow, 1)},
                                         {"tree_index", 0}}));
  const Json none = Json::parse(lines[1]);
  EXPECT_EQ(none["address"], "\"q\"@nowhere.test");
  EXPECT_EQ(none["asked"], "q@nowhere.test");
  EXPECT_EQ(none["code"], 0);
  EXPECT_TRUE(none["pattern"].is_null());
  EXPECT_TRUE(none["tree"].is_null());
}

TEST_F(Match, addressesAndPatternsAreReadAsMailHasThem) {
  const std::string list = m_directory.write("spellings",
                                             "*@c.test\n*@*.b\xc3\xbc"
                                             "cher.test\n\"a@b\"@d.test\n<>\nuser@example.test\n");
  const auto asked = [&](const Words& options, const std::string& address) {
    Words words = {"match", "--tree", list, "--json", address};
    words.insert(words.end(), options.begin(), options.end());
    const Json row = Json::parse(zaroctl(words).out);
    return row["asked"].get<std::string>() + " " + row["code"].dump();
  };
  EXPECT_EQ(asked({}, "<\"a@b\"@C.test.>"), "\"a%40b\"@c.test 1");
  EXPECT_EQ(asked({}, "\"a@b\"@d.test"), "\"a%40b\"@d.test 1");
  EXPECT_EQ(asked({},
                  "x@Shop.B\xc3\x9c"
                  "CHER.test"),
            "x@shop.xn--bcher-kva.test 1");
  EXPECT_EQ(asked({}, "<>"), "<> 1");
  EXPECT_EQ(asked({"--delimiter", "+-"}, "user-x+news@example.test"), "user@example.test 1");
  EXPECT_EQ(asked({}, "user+news@example.test"), "user+news@example.test 0");
  EXPECT_EQ(asked({"--literal"}, "\"a@b\"@c.test"), "\"a@b\"@c.test 0");
  EXPECT_EQ(asked({"--literal"},
                  "x@shop.b\xc3\xbc"
                  "cher.test"),
            "x@shop.b\xc3\xbc"
            "cher.test 1");
  EXPECT_EQ(asked({"--literal"}, "x@shop.xn--bcher-kva.test"), "x@shop.xn--bcher-kva.test 0");
  EXPECT_THAT(zaroctl({"match", "--tree", list, "--explain", "X@C.test"}).out,
              StartsWith("X@C.test, asked as x@c.test\n"));
}

TEST_F(Match, allPrintsEveryPatternInOrder) {
  const ProgramResult result = match({"--all", "user@example.test", "x@nowhere.test"});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(linesOf(result.out),
              ElementsAre("user@example.test\tuser@example.test\t1\t5003\t" + tree(m_allow, 1) + "\tuser@example.test",
                          "user@example.test\t*@example.test\t2\t4003\t" + tree(m_block, 2) + "\tuser@example.test"));
  EXPECT_EQ(match({"--all", "user@example.test"}).status, 0);
}

TEST_F(Match, countPrintsTotalsAndRate) {
  const ProgramResult result = matchInput({"--count", "--json"}, "user@example.test\nx@a.spam.test\nx@nowhere.test\n");
  EXPECT_EQ(result.status, 1);
  const Json totals = Json::parse(result.out);
  EXPECT_EQ(totals["addresses"], 3);
  EXPECT_EQ(totals["decided"], 2);
  EXPECT_EQ(totals["undecided"], 1);
  EXPECT_EQ(totals["codes"], (Json{{{"code", 1}, {"addresses", 1}}, {{"code", 2}, {"addresses", 1}}}));
  EXPECT_GE(totals["seconds"], 0);
  EXPECT_GT(totals["addresses_per_second"], 0);
}

TEST_F(Match, explainTellsWhatBecameOfEveryPattern) {
  const ProgramResult result = match({"--tree", tree(m_exceptions, 16), "--explain", "x@late.partner.test"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(
      linesOf(result.out),
      ElementsAre(
          "x@late.partner.test", "1\t*@*.partner.test\t8\t2003\t" + tree(m_allow, 1) + "\ttaken back by the exception 3",
          "2\t*@late.partner.test\t4\t4004\t" + tree(m_block, 2) + "\tdecides",
          "3\t*@*.partner.test\t16\t2003\t" + tree(m_exceptions, 16) + "\texception: takes 1 back",
          "code 2: no tree has a pattern of kind 1 or 2; of all that are left of kind 8 (A) and 4 (B), kind B alone, weight 4004"));
}

struct Explained {
  const char* label;
  const char* patterns;  // of a first tree
  const char* later;     // of a second tree
  const char* address;
  std::vector<const char*> told;
};

const Explained kExplained[] = {
    {"nothing", "a@b\n", "", "x@y", {"x@y\n", "code 0: no pattern decides\n"}},
    {"both kinds",
     "user@b\t1\n*@b\t2\n*\t1\n",
     "*@b\t2\n",
     "user@b",
     {"\tdecides\n", "\tlighter than 1\n", "\tnot searched: an earlier tree decides\n",
      "code 129 = 1 + 128: in the first tree with a pattern of kind 1 (A) or 2 (B), kind A is heavier: 5002 against 4002; 128 because it has both\n"}},
    {"kind B heavier",
     "user@b\t2\n*@b\t1\n",
     "",
     "user@b",
     {"code 130 = 2 + 128: ", "kind B is heavier: 5002 against 4002; 128 because it has both\n"}},
    {"tie",
     "user@*.a.b\t1\nuser@x.*.b\t2\n",
     "",
     "user@c.a.b",
     {"\tdecides\n", "\tas heavy as 1, which gives the data\n",
      "code 137 = 9 + 128: ", "kinds A and B are of equal weight, 3003; 128 because it has both\n"}},
    {"one kind",
     "user@b\t1\n",
     "",
     "user@b",
     {"code 1: in the first tree with a pattern of kind 1 (A) or 2 (B), kind A alone, weight 5002\n"}},
    {"equal weights of one kind", "*@b\t8\n", "*@b\t8\n", "user@b", {"2\t*@b\t8\t4002\t", "\tas heavy as 1, but met later\n"}},
    {"second tier not needed", "user@b\t8\n", "*@b\t2\n", "user@b", {"\tnot needed: 2 of the first tier decides\n"}},
    {"ignored",
     "user@b\t17\n*@b\t0\n*@*\t256\n",
     "",
     "user@b",
     {"\tignored: it has kinds 1 and 16 together\n", "\tignored: it has no kind\n",
      "\tignored: kind 256 has no part in decisions\n", "code 0: no pattern decides\n"}},
    {"idle exception", "*@b\t16\n", "", "user@b", {"\texception: takes nothing back\n"}},
};

TEST_F(Match, everyReasonHasItsWords) {
  for (const Explained& test : kExplained) {
    const std::string first = m_directory.write("first", test.patterns);
    const std::string second = m_directory.write("second", test.later);
    const ProgramResult result = zaroctl({"match", "--tree", first, "--tree", second, "--explain", test.address});
    for (const char* told : test.told) {
      EXPECT_THAT(result.out, HasSubstr(told)) << test.label;
    }
  }
}

TEST_F(Match, explanationAsJsonHasEveryProperty) {
  const ProgramResult result =
      match({"--tree", tree(m_exceptions, 16), "--json", "--explain", "x@late.partner.test", "user@example.test"});
  const auto lines = linesOf(result.out);
  ASSERT_EQ(lines.size(), 2u);
  const Json first = Json::parse(lines[0]);
  EXPECT_EQ(first["code"], 2);
  EXPECT_EQ(first["tier"], "second");
  EXPECT_EQ(first["weight_a"], 0);
  EXPECT_EQ(first["weight_b"], 4004);
  EXPECT_EQ(first["both_kinds"], false);
  EXPECT_EQ(first["base_code"], first["code"]);
  EXPECT_EQ(first["added_code"], 0);
  EXPECT_EQ(first["trees_searched"], 3);
  ASSERT_EQ(first["candidates"].size(), 3u);
  EXPECT_EQ(first["candidates"][0]["fate"], "removed");
  EXPECT_EQ(first["candidates"][0]["other"], 3);
  EXPECT_EQ(first["candidates"][1]["fate"], "decided");
  EXPECT_EQ(first["candidates"][2]["fate"], "exception");
  EXPECT_EQ(first["candidates"][2]["removed"], 1);
  const Json second = Json::parse(lines[1]);
  EXPECT_EQ(second["tier"], "first");
  EXPECT_EQ(second["candidates"][1]["fate"], "not searched");
}

TEST_F(Match, diffPrintsOnlyWhatChanges) {
  const std::string newBlock = m_directory.write("new", "*@example.test\n*@a.spam.test\n");
  const std::string oldTrees = tree(m_allow, 1) + ";" + tree(m_block, 2);
  const std::string newTrees = tree(m_allow, 1) + ";" + tree(newBlock, 2);
  const ProgramResult result =
      zaroctl({"match", "--diff", oldTrees, newTrees, "user@example.test", "x@a.spam.test", "x@b.spam.test"});
  EXPECT_EQ(result.status, 1) << result.err;
  EXPECT_THAT(linesOf(result.out), ElementsAre("x@a.spam.test\t2\t*@*.spam.test\t2\t*@a.spam.test\tx@a.spam.test",
                                               "x@b.spam.test\t2\t*@*.spam.test\t0\t-\tx@b.spam.test"));
  const ProgramResult same = zaroctl({"match", "--diff", oldTrees, newTrees, "user@example.test"});
  EXPECT_EQ(same.status, 0);
  EXPECT_EQ(same.out, "");
  const Json row = Json::parse(zaroctl({"--json", "match", "--diff", oldTrees, newTrees, "x@b.spam.test"}).out);
  EXPECT_EQ(row["old_tree"], tree(m_block, 2));
  EXPECT_TRUE(row["new_tree"].is_null());
}

TEST_F(Match, filesOfOneTreeAreOneTree) {
  const std::string one = m_directory.write("one", "user@b\n");
  const std::string other = m_directory.write("other", "*@b\n");
  const std::string both = one + ":1," + other + ":2";
  EXPECT_EQ(zaroctl({"match", "--tree", both, "user@b"}).out, "user@b\t129\tuser@b\t1\t" + both + "\tuser@b\n");
}

TEST_F(Match, treeWithoutAKindIsOfKindOneAndAColonMayBePartOfAName) {
  const std::string plain = m_directory.write("a:b", "user@b\n");
  EXPECT_EQ(zaroctl({"match", "--tree", plain, "user@b"}).out, "user@b\t1\tuser@b\t1\t" + plain + "\tuser@b\n");
  EXPECT_EQ(zaroctl({"match", "--tree", plain + ":2", "user@b"}).out, "user@b\t2\tuser@b\t2\t" + plain + ":2\tuser@b\n");
}

TEST_F(Match, refusedKindsAreToldAndTheRestCounted) {
  std::string patterns = "user@b\n";
  for (int i = 0; i < 8; ++i) {
    patterns += "user@b\t2\n";
  }
  const std::string file = m_directory.write("refused", patterns);
  const ProgramResult result = zaroctl({"match", "--tree", file, "user@b"});
  EXPECT_EQ(result.status, 0);
  const auto told = linesOf(result.err);
  ASSERT_EQ(told.size(), 6u);
  EXPECT_EQ(told[0], "zaroctl: " + file + ":2: kind 2 is refused for \"user@b\"");
  EXPECT_EQ(told[5], "zaroctl: 3 more patterns with refused kinds; zaroctl lint shows them all");
}

struct BadFile {
  const char* label;
  std::string text;
  const char* told;
};

TEST_F(Match, listThatCannotBeReadWholeDecidesNothing) {
  const BadFile files[] = {
      {"kind", "a@b\n*@c\tblocked\n", ":2: \"blocked\" behind the tab is no kind: a number is wanted"},
      {"no kind", "a@b\t\n", ":1: \"\" behind the tab is no kind"},
      {"sign", "a@b\t-1\n", ":1: \"-1\" behind the tab is no kind"},
      {"large", "a@b\t4294967296\n", " is no kind"},
      {"long", std::string(70000, 'x'), ":1: longer than 65536 bytes"},
      {"nul", std::string("a@b\nx\0y\n", 8), ":2: a NUL in a text"},
  };
  for (const BadFile& file : files) {
    const std::string path = m_directory.write("bad", file.text);
    const ProgramResult result = zaroctl({"match", "--tree", path, "a@b"});
    EXPECT_EQ(result.status, 65) << file.label;
    EXPECT_EQ(result.out, "") << file.label;
    EXPECT_EQ(linesOf(result.err).size(), 1u) << file.label;
    EXPECT_THAT(result.err, AllOf(StartsWith("zaroctl: " + path), HasSubstr(file.told))) << file.label;
  }
  EXPECT_THAT(zaroctl({"match", "--tree", m_directory.path("none"), "a@b"}).err,
              HasSubstr("none: cannot open: No such file or directory"));
  EXPECT_THAT(zaroctl({"match", "--tree", m_directory.path(), "a@b"}).err, HasSubstr(": cannot read: Is a directory"));
}

struct WrongMatch {
  const char* label;
  Words arguments;
  const char* told;
};

TEST_F(Match, wrongUsageIsTold) {
  const WrongMatch cases[] = {
      {"no tree", {"match", "a@b"}, "name the trees: either --tree, once or more, or --diff"},
      {"no address", {"match", "--tree", "x"}, "ADDRESS is required"},
      {"both", {"match", "--tree", "x", "--diff", "x", "y", "a@b"}, "name the trees: either"},
      {"two ways", {"match", "--tree", "x", "--all", "--count", "a@b"}, "only one of --all, --count, --explain and --diff"},
      {"two forms",
       {"match", "--tree", "x", "--literal", "--delimiter", "+", "a@b"},
       "only one of --literal and --delimiter"},
      {"dash among others", {"match", "--tree", "x", "a@b", "-"}, "- stands alone"},
      {"no file", {"match", "--tree", "", "a@b"}, "names no file"},
      {"no file before the kind", {"match", "--tree", ":1", "a@b"}, "names no file"},
      {"nothing after the comma", {"match", "--tree", "x,", "a@b"}, "names no file"},
      {"no group", {"match", "--tree", "group::1", "a@b"}, "names no group"},
      {"half a diff", {"match", "--diff", "x"}, "--diff"},
  };
  for (const WrongMatch& test : cases) {
    const ProgramResult result = zaroctl(test.arguments);
    EXPECT_EQ(result.status, 64) << test.label;
    EXPECT_EQ(linesOf(result.err).size(), 1u) << test.label << result.err;
    EXPECT_THAT(result.err, HasSubstr(test.told)) << test.label;
  }
}

TEST_F(Match, terminalGetsATable) {
  const ProgramResult result = zarotest::zaroctlOnTerminal(command({"user@example.test", "x@a.spam.test"}), "");
  EXPECT_THAT(linesOf(result.out)[0], MatchesRegex("ADDRESS  *CODE  PATTERN  *KIND  TREE  *ASKED *"));
  EXPECT_EQ(linesOf(result.out).size(), 3u);
  EXPECT_THAT(zarotest::zaroctlOnTerminal(command({"--explain", "user@example.test"}), "").out,
              HasSubstr("WHAT BECAME OF IT"));
}

TEST_F(Match, verboseTellsWhatLoadingTook) {
  EXPECT_THAT(match({"-v", "user@example.test"}).err,
              MatchesRegex("zaroctl: 5 patterns in [0-9.]+ s \\([0-9.]+( [kMG])?/s\\), [0-9]+ MiB in use\n"));
}

TEST_F(Match, listThatTakesLongShowsABarOnATerminal) {
  std::string patterns;
  for (int i = 0; i < 200000; ++i) {
    patterns += "user" + std::to_string(i) + "@host" + std::to_string(i % 977) + ".example.test\n";
  }
  const std::string file = m_directory.write("big", patterns);
  // The first list comes from a writer that takes longer than the half second after which the bar appears.
  const std::string slow = m_directory.path() + "/slow";
  ASSERT_EQ(mkfifo(slow.c_str(), 0600), 0);
  std::thread writer([&slow] {
    std::ofstream pipe(slow);
    std::this_thread::sleep_for(std::chrono::seconds(1));
    pipe << "user@example.test\n";
  });
  const ProgramResult result =
      zarotest::zaroctlOnTerminal({"match", "--tree", slow + "," + file, "user77@host77.example.test"}, "");
  writer.join();
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.out, HasSubstr("user77@host77.example.test  1"));
  EXPECT_THAT(result.out, AllOf(HasSubstr(" % "), HasSubstr(" patterns, "), HasSubstr("[#")));
}

// --- Address groups ---

class MatchGroup : public zarotest::ProgramTest {
 protected:
  void addGroup(const std::string& name, const std::string& members) const {
    session()->run("INSERT INTO named_object (type, name) VALUES (5, " + zaroruntime::sqlLiteral(name) + ")");
    const std::string id = session()->value("SELECT max(id) FROM named_object").value_or("");
    int position = 0;
    for (const std::string& member : zarotest::linesOf(members)) {
      session()->run("INSERT INTO address_group_member (group_id, position, address) VALUES (" + id + ", " +
                     std::to_string(position++) + ", " + zaroruntime::sqlLiteral(member) + ")");
    }
  }
};

TEST_P(MatchGroup, isATreeOfItsMembers) {
  mustInit();
  addGroup("sta,ff:2", "user@example.test\n*@*.o'brien.test\n");
  const ProgramResult result =
      run({"match", "--tree", "group:sta,ff:2:2", "user@example.test", "x@a.o'brien.test", "other@example.test"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err, "");
  EXPECT_THAT(linesOf(result.out),
              ElementsAre("user@example.test\t2\tuser@example.test\t2\tgroup:sta,ff:2:2\tuser@example.test",
                          "x@a.o'brien.test\t2\t*@*.o'brien.test\t2\tgroup:sta,ff:2:2\tx@a.o'brien.test",
                          "other@example.test\t0\t-\t-\t-\tother@example.test"));
}

TEST_P(MatchGroup, mustBeThereAndTheOnlyOneOfItsName) {
  mustInit();
  addGroup("staff", "a@b.test\n");
  addGroup("staff", "");
  const ProgramResult none = run({"match", "--tree", "group:nobody", "a@b.test"});
  EXPECT_EQ(none.status, 65);
  EXPECT_EQ(none.err, "zaroctl: no address group named \"nobody\"\n");
  const ProgramResult two = run({"match", "--tree", "group:staff:1", "a@b.test"});
  EXPECT_EQ(two.status, 64);
  EXPECT_THAT(two.err, testing::MatchesRegex("zaroctl: 2 address groups are named \"staff\": [0-9]+, [0-9]+; .+\n"));
}

TEST_P(MatchGroup, failureHalfWayIsNoEmptyGroup) {
  mustInit();
  addGroup("staff", "a@b.test\n");
  writeFile("sql/ui_GetMemberAddressByAGId.sql", "SELECT nothing FROM address_group_member WHERE group_id=%u");
  const ProgramResult result = run({"match", "--tree", "group:staff", "a@b.test"});
  EXPECT_EQ(result.status, 69);
  EXPECT_THAT(result.err, HasSubstr("cannot read the address group \"staff\": "));
  EXPECT_EQ(linesOf(result.err).size(), 1u);
}

ZARO_ON_EVERY_DATABASE(MatchGroup);

}  // namespace
