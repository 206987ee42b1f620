// Results in each of their forms.
#include "console/Output.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "console/UsageError.h"

namespace {

using testing::HasSubstr;

std::string printed(Output out, const std::function<void(Output&)>& print) {
  testing::internal::CaptureStdout();
  print(out);
  out.finish();
  return testing::internal::GetCapturedStdout();
}

Output terminalOf(std::size_t columns, bool isBoldShown = false) {
  Terminal terminal;
  terminal.columns = columns;
  terminal.isBoldShown = isBoldShown;
  return Output(terminal);
}

const Json kRows = Json::array({{{"id", 1}, {"text", std::string(100, 'x')}, {"note", nullptr}},
                                {{"id", 2}, {"text", "\u65e5\u672c\n"}, {"note", "b"}}});

void printRows(Output& out) {
  out.rows({{"id", "ID"}, {"text", "TEXT"}, {"note", "NOTE"}}, kRows);
}

TEST(Output, tablesAreCutToTheTerminal) {
  EXPECT_EQ(printed(terminalOf(40), printRows),
            "ID  TEXT                            NOTE\n"
            "1   " +
                std::string(29, 'x') + "\u2026  -\n" + "2   \u65e5\u672c\\n" + std::string(24, ' ') + "  b\n");
}

TEST(Output, tablesAreWholeWhereTheTerminalDoesNotTellItsWidth) {
  EXPECT_THAT(printed(terminalOf(0), printRows), HasSubstr(std::string(100, 'x') + "  -\n"));
}

TEST(Output, columnsThatAreToBeReadWholeAreNotCut) {
  const auto print = [](Output& out) {
    out.rows({{"text", "TEXT"}, {"reason", "REASON", Output::Width::Whole}},
             Json::array({{{"text", std::string(30, 'x')}, {"reason", std::string(50, 'y')}}}));
  };
  EXPECT_EQ(printed(terminalOf(30), print),
            "TEXT              REASON\n" + std::string(15, 'x') + "\u2026  " + std::string(50, 'y') + "\n");
}

TEST(Output, columnsKeepWhatTellsThemApart) {
  EXPECT_THAT(printed(terminalOf(5), printRows), HasSubstr("\n1   " + std::string(11, 'x') + "\u2026  -\n"));
}

TEST(Output, headingsAloneAreBold) {
  EXPECT_EQ(printed(terminalOf(20, true),
                    [](Output& out) {
                      out.rows({{"id", "ID"}}, Json::array({{{"id", 1}}}));
                    }),
            "\x1b[1mID\x1b[0m\n1\n");
  EXPECT_EQ(printed(terminalOf(20, true), [](Output& out) { out.record({{"id", 1}}); }), "id  1\n");
}

TEST(Output, thingsThatWereAskedForAreNotCut) {
  EXPECT_EQ(printed(terminalOf(20),
                    [](Output& out) {
                      out.record({{"text", std::string(50, 'x')}});
                    }),
            "text  " + std::string(50, 'x') + "\n");
}

TEST(Output, pipesGetEverything) {
  EXPECT_EQ(printed(Output(Output::Form::Lines), printRows),
            "1\t" + std::string(100, 'x') + "\t-\n2\t\u65e5\u672c\\n\tb\n");
}

TEST(Output, valuesOfAKeyStandAlone) {
  const auto valuesOf = [](const char* key, Output::Escaping escaping = Output::Escaping::None) {
    return Output::valuesOf(key, escaping);
  };
  EXPECT_EQ(printed(valuesOf("id"), printRows), "1\n2\n");
  EXPECT_EQ(printed(valuesOf("note"), printRows), "\nb\n");
  EXPECT_EQ(printed(valuesOf("text"), printRows), std::string(100, 'x') + "\n\u65e5\u672c\n\n");
  EXPECT_EQ(printed(valuesOf("text", Output::Escaping::Printable), printRows),
            std::string(100, 'x') + "\n\u65e5\u672c\\n\n");
  EXPECT_EQ(printed(valuesOf("list"), [](Output& out) { out.record({{"list", {"a", "b"}}}); }), "a, b\n");
  EXPECT_EQ(printed(valuesOf("inside"), [](Output& out) { out.record({{"inside", {{"a", 1}}}}); }), "{\"a\":1}\n");
}

TEST(Output, unknownKeyIsToldWithThoseThereAre) {
  Output out = Output::valuesOf("nmae", Output::Escaping::None);
  try {
    out.record({{"id", 1}, {"name", "x"}});
    FAIL();
  } catch (const UsageError& failure) {
    EXPECT_STREQ(failure.what(), "--query: the result has no key \"nmae\"; it has id, name");
  }
}

}  // namespace
