// One value in the text of an ini file changes one line.
#include "config/IniText.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "ZaroRuntime/IniFile.h"

namespace {

using zaroruntime::IniFile;
using zaroruntime::malformedIniLine;
using zaroruntime::withIniValue;

struct SetCase {
  const char* label;
  const char* before;
  const char* after;  // with [s] k set to v
};

const SetCase kSetCases[] = {
    {"value alone changes", "[s]\nk=old\n", "[s]\nk=v\n"},
    {"blanks of the line stay", " [s]\n\t k = old \n", " [s]\n\t k = v\n"},
    {"empty value", "[s]\nk=\n", "[s]\nk=v\n"},
    {"empty value with blanks", "[s]\nk= \t\n", "[s]\nk= \tv\n"},
    {"value with signs of its own", "[s]\nk=a=b;c#d[e]\n", "[s]\nk=v\n"},
    {"no line end behind it", "[s]\nk=old", "[s]\nk=v"},
    {"comments everywhere", "; head\n\n# more\n[s]\n; about k\nk=old\n; about nothing\n\n[t]\nk=1\n; the end",
     "; head\n\n# more\n[s]\n; about k\nk=v\n; about nothing\n\n[t]\nk=1\n; the end"},
    {"blank lines are kept", "\n\n[s]\n\n\nk=old\n\n\n\n[t]\n", "\n\n[s]\n\n\nk=v\n\n\n\n[t]\n"},
    {"line ends of another system", "; c\r\n[s]\r\na=1\r\n", "; c\r\n[s]\r\na=1\r\nk=v\r\n"},
    {"line ends of a third", "[s]\ra=1\r[t]\r", "[s]\ra=1\rk=v\r[t]\r"},
    {"byte order mark", "\xef\xbb\xbf[s]\nk=old\n", "\xef\xbb\xbf[s]\nk=v\n"},
    {"other letter case is another key", "[S]\nk=1\n[s]\nK=2\n", "[S]\nk=1\n[s]\nK=2\nk=v\n"},
    {"new key behind the last of its section", "[s]\na=1\n; about b\nb=2\n\n; about t\n[t]\nk=3\n",
     "[s]\na=1\n; about b\nb=2\nk=v\n\n; about t\n[t]\nk=3\n"},
    {"new key in an empty section", "[s]\n; comment\n[t]\n", "[s]\nk=v\n; comment\n[t]\n"},
    {"new key at the end without a line end", "[s]\na=1", "[s]\na=1\nk=v\n"},
    {"new section", "[t]\nk=1\n", "[t]\nk=1\n\n[s]\nk=v\n"},
    {"new section behind a comment", "[t]\nk=1\n; end", "[t]\nk=1\n; end\n\n[s]\nk=v\n"},
    {"new section behind a line without an end", "[t]\nk=1", "[t]\nk=1\n\n[s]\nk=v\n"},
    {"new section behind a section without an end", "[t]", "[t]\n\n[s]\nk=v\n"},
    {"new file", "", "[s]\nk=v\n"},
    {"the last of two counts", "[s]\nk=1\nk=2\n", "[s]\nk=1\nk=v\n"},
    {"section that stands twice", "[s]\nk=1\n[t]\n[s]\nk=2\nz=3\n", "[s]\nk=1\n[t]\n[s]\nk=v\nz=3\n"},
    {"new key of a section that stands twice", "[s]\na=1\n[t]\n[s]\nb=2\n[u]\n", "[s]\na=1\n[t]\n[s]\nb=2\nk=v\n[u]\n"},
    {"key before the first section is another", "k=1\n[s]\n", "k=1\n[s]\nk=v\n"},
    {"commented out", "[s]\n;k=1\n#k=2\n", "[s]\nk=v\n;k=1\n#k=2\n"},
    {"malformed lines stay", "[s]\njunk\nk=1\n=x\n[open\n", "[s]\njunk\nk=v\n=x\n[open\n"},
    {"comment behind a section", "[s] ; one\nk=1\n", "[s] ; one\nk=v\n"},
    {"blanks in a section's name", "[ s ]\nk=1\n", "[ s ]\nk=v\n"},
};

TEST(IniText, settingChangesOneLine) {
  for (const SetCase& c : kSetCases) {
    SCOPED_TRACE(c.label);
    EXPECT_EQ(withIniValue(c.before, "s", "k", "v"), c.after);
    EXPECT_EQ(IniFile::parse(c.after, "after").get("s", "k"), "v") << "the parser agrees";
  }
}

TEST(IniText, settingAgainChangesNothing) {
  for (const SetCase& c : kSetCases) {
    EXPECT_EQ(withIniValue(c.after, "s", "k", "v"), c.after) << c.label;
  }
}

struct LineCase {
  const char* text;
  std::size_t malformed;  // 0: none
};

const LineCase kLineCases[] = {
    {"", 0},
    {"\n\r\n \t\n", 0},
    {"; c\n# c\n  ; c\n", 0},
    {"[s]\n [s] \n[s];c\n[s] # c\n[a b]\n", 0},
    {"k=v\n k = v \nk=\nk==\nk=[s\n", 0},
    {"\xef\xbb\xbf; c\n", 0},
    {"\xef\xbb\xbf[s]", 0},
    {"junk", 1},
    {"\njunk\n", 2},
    {"[s]\r\nk=v\r\njunk\r\n", 3},
    {"[s]\rk=v\rjunk\r", 3},
    {"[s\n", 1},
    {"[s\n]\n", 1},
    {"[]\n", 1},
    {"[ ]\n", 1},
    {"[s] x\n", 1},
    {"[s]=x\n", 1},
    {"=v\n", 1},
    {" = v\n", 1},
    {"k\n=v\n", 1},
    {"[s]\nk=v\n\xef\xbb\xbf; c\n", 3},
};

TEST(IniText, firstMalformedLineIsFound) {
  for (const LineCase& c : kLineCases) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(malformedIniLine(c.text), c.malformed != 0 ? std::optional<std::size_t>(c.malformed) : std::nullopt);
  }
}

}  // namespace
