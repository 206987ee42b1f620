#include "policy/LastGoodPolicy.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>

#include "ZaroRuntime/RuntimeError.h"
#include "policy/PolicyMaker.h"
#include "support/SnapshotText.h"
#include "support/TemporaryDirectory.h"

namespace {

std::atomic<int> syncedDirectories{0};

}  // namespace

// In the place of the C library's.
extern "C" int fsync(int descriptor) {
  struct stat status = {};
  syncedDirectories += fstat(descriptor, &status) == 0 && S_ISDIR(status.st_mode) ? 1 : 0;
  return static_cast<int>(syscall(SYS_fsync, descriptor));
}

namespace {

// A rename that is not on the disk is undone by a power failure.
TEST(LastGoodPolicy, isOnTheDiskUnderItsName) {
  const zarotest::TemporaryDirectory directory;
  syncedDirectories = 0;
  LastGoodPolicy(directory.path("state")).save(MailPolicy());
  EXPECT_EQ(syncedDirectories, 1);
}

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
