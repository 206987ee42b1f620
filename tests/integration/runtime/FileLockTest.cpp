// Making the file that a lock is held on, in a process that may be killed at it.
#include "common/FileLock.h"

#include <gmock/gmock.h>
#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <filesystem>

#include "support/ProcessTest.h"
#include "support/TemporaryDirectory.h"

namespace {

bool isKilledAtFchown = false;

}  // namespace

// In the place of the C library's, for the whole program.
extern "C" int fchown(int file, uid_t owner, gid_t group) noexcept {
  if (isKilledAtFchown) {
    raise(SIGKILL);
  }
  return static_cast<int>(syscall(SYS_fchown, file, owner, group));
}

namespace {

using testing::HasSubstr;
using zaroruntime::FileLock;

class FileLockTest : public testing::Test {
 protected:
  FileLockTest() : m_path(m_directory.write("zaro.ini", "")) {}

  // Kills a process that makes the lock, before it has given it away.
  void killAtMaking() const {
    const std::string failure = failureInOwnProcess(
        [&] {
          isKilledAtFchown = true;
          const FileLock lock(m_path, ".lock", 1);
        },
        60);
    EXPECT_THAT(failure, HasSubstr("the child process died: Killed"));
  }

  zarotest::TemporaryDirectory m_directory;
  std::string m_path;
};

TEST_F(FileLockTest, killedProcessLeavesNoLockHalfMade) {
  killAtMaking();
  EXPECT_FALSE(std::filesystem::exists(m_path + ".lock"));
  const FileLock lock(m_path, ".lock", 1);
  EXPECT_TRUE(std::filesystem::exists(m_path + ".lock"));
}

TEST_F(FileLockTest, ownerOfTheFileGetsItsLockAfterRootWasKilled) {
  constexpr uid_t kNobody = 65534;
  if (geteuid() != 0) {
    GTEST_SKIP() << "takes root, who makes locks for others";
  }
  ASSERT_EQ(chown(m_path.c_str(), kNobody, kNobody), 0);
  ASSERT_EQ(chown(m_directory.path().c_str(), kNobody, kNobody), 0);
  killAtMaking();
  runInOwnProcess([&] {
    ASSERT_EQ(setegid(kNobody), 0);
    ASSERT_EQ(seteuid(kNobody), 0);
    const FileLock lock(m_path, ".lock", 1);
  });
}

TEST_F(FileLockTest, onlyTheLockIsLeftBeside) {
  { const FileLock lock(m_path, ".lock", 1); }
  { const FileLock again(m_path, ".lock", 1); }
  std::size_t files = 0;
  for (const auto& entry : std::filesystem::directory_iterator(m_directory.path())) {
    static_cast<void>(entry);
    ++files;
  }
  EXPECT_EQ(files, 2u);
}

}  // namespace
