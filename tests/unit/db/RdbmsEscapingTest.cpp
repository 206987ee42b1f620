// Quotes and percentage signs in texts for statements.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "RdbmsInterface.h"

namespace {

using ZARO::RdbmsInterface;

using Escape = void (*)(const char*, std::string&, const char*&);

struct EscapeCase {
  const char* label;
  const char* input;
  const char* want;  // null: nothing to escape, the input itself comes back
};

const EscapeCase kQuoteCases[] = {
    {"null", nullptr, nullptr},
    {"empty", "", nullptr},
    {"no quote", "Smith", nullptr},
    {"other signs", "a\"b\\c%d_e[f]`g", nullptr},
    {"UTF-8", "M\xC3\xBCller", nullptr},
    {"one inside", "O'Brien", "O''Brien"},
    {"alone", "'", "''"},
    {"two", "''", "''''"},
    {"three", "'''", "''''''"},
    {"at the start", "'a", "''a"},
    {"at the end", "a'", "a''"},
    {"at both ends", "'a'", "''a''"},
    {"with a backslash", "\\'", "\\''"},
    {"with a percent sign", "%'", "%''"},
    {"several", "a'b''c'd", "a''b''''c''d"},
};

const EscapeCase kPercentCases[] = {
    {"null", nullptr, nullptr},
    {"empty", "", nullptr},
    {"no percent sign", "abc", nullptr},
    {"other signs", "a'b_c[d]\\e[]", nullptr},
    {"at the end", "100%", "100[%]"},
    {"two", "%%", "[%][%]"},
    {"alone", "%", "[%]"},
    {"at the start", "%a", "[%]a"},
    {"escaped already", "[%]", "[[%]]"},
    {"several", "a%b%%c", "a[%]b[%][%]c"},
    {"with a quote", "%'", "[%]'"},
};

void check(Escape escape, const EscapeCase& c) {
  SCOPED_TRACE(c.label);
  std::string work;
  const char* output = "not set";
  escape(c.input, work, output);
  if (c.want == nullptr) {
    EXPECT_EQ(static_cast<const void*>(output), static_cast<const void*>(c.input));
    EXPECT_EQ(work, "");
    return;
  }
  EXPECT_STREQ(output, c.want);
  EXPECT_EQ(static_cast<const void*>(output), static_cast<const void*>(work.c_str()));
  EXPECT_EQ(work, c.want);
  EXPECT_GE(work.capacity(), std::strlen(c.input) + 50);
}

TEST(RdbmsEscapeData, doublesSingleQuotesOnly) {
  for (const EscapeCase& c : kQuoteCases) {
    check(RdbmsInterface::escapeData, c);
  }
}

TEST(RdbmsReplacePercentageSign, bracketsPercentSignsOnly) {
  for (const EscapeCase& c : kPercentCases) {
    check(RdbmsInterface::replacePercentageSign, c);
  }
}

struct Escaping {
  const char* label;
  Escape escape;
  char sign;
  const char* replacement;
};

const Escaping kEscapings[] = {
    {"escapeData", RdbmsInterface::escapeData, '\'', "''"},
    {"replacePercentageSign", RdbmsInterface::replacePercentageSign, '%', "[%]"},
};

TEST(RdbmsEscaping, leavesTheWorkStringAloneWhenThereIsNothingToDo) {
  for (const Escaping& e : kEscapings) {
    SCOPED_TRACE(e.label);
    std::string work = "kept";
    const char* output = nullptr;
    e.escape("plain", work, output);
    EXPECT_EQ(work, "kept");
    e.escape(nullptr, work, output);
    EXPECT_EQ(work, "kept");
    EXPECT_EQ(output, nullptr);
  }
}

TEST(RdbmsEscaping, replacesWhatTheWorkStringHeld) {
  for (const Escaping& e : kEscapings) {
    SCOPED_TRACE(e.label);
    std::string work = "from the text before";
    const char* output = nullptr;
    e.escape(std::string(1, e.sign).c_str(), work, output);
    EXPECT_EQ(work, e.replacement);
    EXPECT_STREQ(output, e.replacement);
  }
}

// A LIKE pattern goes through both, and a caller may well use one work string for both steps.
TEST(RdbmsEscaping, mayWorkOnItsOwnOutput) {
  for (const Escaping& e : kEscapings) {
    SCOPED_TRACE(e.label);
    std::string work = std::string("a") + e.sign + "b";
    const char* output = work.c_str();
    e.escape(output, work, output);
    EXPECT_EQ(work, std::string("a") + e.replacement + "b");
    EXPECT_EQ(static_cast<const void*>(output), static_cast<const void*>(work.c_str()));
  }
}

TEST(RdbmsEscaping, growsBeyondTheReserve) {
  for (const Escaping& e : kEscapings) {
    SCOPED_TRACE(e.label);
    std::string work, want;
    for (int sign = 0; sign < 100000; ++sign) {
      want += e.replacement;
    }
    const char* output = nullptr;
    e.escape(std::string(100000, e.sign).c_str(), work, output);
    EXPECT_EQ(work, want);
  }
}

}  // namespace
