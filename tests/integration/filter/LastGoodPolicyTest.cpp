#include "policy/LastGoodPolicy.h"

#include <gtest/gtest.h>

#include "ZaroRuntime/RuntimeError.h"
#include "policy/PolicyMaker.h"
#include "support/SnapshotText.h"
#include "support/TemporaryDirectory.h"

namespace {

TEST(LastGoodPolicy, isReplacedAsAWhole) {
  const zarotest::TemporaryDirectory directory;
  const LastGoodPolicy kept(directory.path("state"));
  EXPECT_FALSE(kept.load());
  PolicyMaker made;
  made.rule("rule", {"*@bad.test"}, 2);
  MailPolicy& policy = made.policy();
  policy.version = 17;
  kept.save(policy);
  policy.version = 18;
  kept.save(policy);
  EXPECT_EQ(kept.load().value().version, 18u);
  policy.rules.front().name = "\xFF";
  EXPECT_THROW(kept.save(policy), zaroruntime::RuntimeError);
  EXPECT_EQ(kept.load().value().version, 18u);
}

TEST(LastGoodPolicy, keepsATextAsItIs) {
  const zarotest::TemporaryDirectory directory;
  const LastGoodPolicy kept(directory.path("state"));
  EXPECT_FALSE(kept.text());
  const std::string snapshot = zarotest::snapshotText(PolicyMaker().policy());
  kept.saveText(snapshot);
  EXPECT_EQ(kept.text(), snapshot);
  EXPECT_TRUE(kept.load());
}

}  // namespace
