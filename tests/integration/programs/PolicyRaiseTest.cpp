// zaroctl policy raise: the stored policy gets a version above one that clients have.
#include <string>

#include "programs/ProgramTest.h"

namespace {

using testing::HasSubstr;

class PolicyRaise : public zarotest::SampleInstallation {
 protected:
  std::string version() const { return value("SELECT version FROM policy_version"); }
};

TEST_P(PolicyRaise, bringsTheVersionAboveTheOneThatIsGiven) {
  const std::string before = version();
  const zarotest::ProgramResult raised = run({"policy", "raise", "5000"});
  EXPECT_EQ(raised.status, 0) << raised.err;
  EXPECT_EQ(raised.out, "before\t" + before + "\nversion\t5001\n");
  EXPECT_EQ(version(), "5001");
  EXPECT_EQ(run({"admin", "add", "helpdesk"}).status, 0);  // no policy
  EXPECT_EQ(version(), "5001");
  EXPECT_EQ(run({"entity", "add", "*@new.example.test"}).status, 0);
  EXPECT_EQ(version(), "5002");
}

TEST_P(PolicyRaise, leavesAHigherVersionAsItIs) {
  ASSERT_EQ(run({"policy", "raise", "5000"}).status, 0);
  EXPECT_EQ(run({"policy", "raise", "5000"}).out, "before\t5001\nversion\t5001\n");
  EXPECT_EQ(run({"policy", "raise", "7"}).out, "before\t5001\nversion\t5001\n");
  EXPECT_EQ(version(), "5001");
}

TEST_P(PolicyRaise, refusesWhatIsNoVersion) {
  const std::string before = version();
  for (const char* wrong : {"x", "-1", "", "1000000000000001", "99999999999999999999"}) {
    const zarotest::ProgramResult result = run({"policy", "raise", "--", wrong});
    EXPECT_EQ(result.status, 64) << wrong;
    EXPECT_THAT(result.err, HasSubstr("is not a number from 0 to 1000000000000000"));
  }
  EXPECT_EQ(version(), before);
}

ZARO_ON_EVERY_DATABASE(PolicyRaise);

}  // namespace
