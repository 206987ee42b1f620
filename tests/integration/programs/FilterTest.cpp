// zaroctl filter list: a line for each filter.
#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

#include "programs/Program.h"

namespace {

using nlohmann::json;
using zarotest::linesOf;
using zarotest::ProgramResult;
using zarotest::zaroctl;

TEST(FilterList, hasALineForEachFilter) {
  const ProgramResult result = zaroctl({"filter", "list"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "");
  const auto lines = linesOf(result.out);
  ASSERT_EQ(lines.size(), 29u);
  EXPECT_EQ(lines[0], "1\tVirusFilter\tno");
  EXPECT_EQ(lines[6], "7\tSizeFilter:SizeAttachment\tyes");
  EXPECT_EQ(lines[15], "16\tPhishingFitler\tno");
  EXPECT_EQ(lines[28], "29\tSnapFilter\tno");
}

TEST(FilterList, isATableOnATerminal) {
  const auto lines = linesOf(zarotest::zaroctlOnTerminal({"filter", "list"}, "").out);
  ASSERT_EQ(lines.size(), 30u);
  EXPECT_EQ(lines[0], "VALUE  NAME                                 ATTACHMENT");
  EXPECT_EQ(lines[2], "2      AttachmentFilter:AttachmentTrueType  yes");
}

TEST(FilterList, isAnArrayOfObjectsInJson) {
  const json filters = json::parse(zaroctl({"filter", "list", "--json"}).out);
  ASSERT_EQ(filters.size(), 29u);
  EXPECT_EQ(filters.at(18), (json{{"value", 19}, {"name", "AttachmentFilter:PwdProtectedFile"}, {"attachment", true}}));
}

}  // namespace
