#include "installation/AtomicFile.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>

#include "support/TemporaryDirectory.h"

namespace {

bool failsForDirectories = false;

}  // namespace

// In the place of the C library's.
extern "C" int fsync(int descriptor) {
  struct stat status = {};
  if (failsForDirectories && fstat(descriptor, &status) == 0 && S_ISDIR(status.st_mode)) {
    errno = EIO;
    return -1;
  }
  return static_cast<int>(syscall(SYS_fsync, descriptor));
}

namespace {

using zarotest::readFile;

class AtomicFileTest : public testing::Test {
 protected:
  std::string path() const { return m_directory.path("file"); }
  std::ptrdiff_t filesThere() const {
    return std::distance(std::filesystem::directory_iterator(m_directory.path()), std::filesystem::directory_iterator());
  }

 private:
  zarotest::TemporaryDirectory m_directory;
};

// The larger text comes first, so that one file for both would have the end of the one behind the other.
TEST_F(AtomicFileTest, hasOneOfItsWritersAsAWhole) {
  AtomicFile one(path());
  one.append(std::string(200000, '1'));
  {
    AtomicFile other(path());
    other.append("22");
    other.putInPlace();
    EXPECT_EQ(readFile(path()), "22");
  }
  one.append("1");
  EXPECT_EQ(readFile(path()), "22");
  one.putInPlace();
  EXPECT_EQ(readFile(path()), std::string(200001, '1'));
  EXPECT_EQ(filesThere(), 1);
}

TEST_F(AtomicFileTest, leavesOnlyTheOldOneUntilItIsInPlace) {
  AtomicFile(path()).putInPlace();
  { AtomicFile(path()).append("new"); }
  EXPECT_EQ(readFile(path()), "");
  EXPECT_EQ(filesThere(), 1);
}

TEST_F(AtomicFileTest, isForItsOwnerAlone) {
  AtomicFile(path()).putInPlace();
  struct stat status = {};
  ASSERT_EQ(stat(path().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0600u);
}

TEST_F(AtomicFileTest, removesWhatKilledWritersLeft) {
  for (int left = 0; left < 3; ++left) {
    const pid_t writer = fork();
    ASSERT_GE(writer, 0);
    if (writer == 0) {
      AtomicFile file(path());
      file.append(std::string(100000, 'x'));
      kill(getpid(), SIGKILL);
    }
    ASSERT_EQ(waitpid(writer, nullptr, 0), writer);
  }
  EXPECT_GE(filesThere(), 1);
  AtomicFile(path()).putInPlace();
  EXPECT_EQ(filesThere(), 1);
}

// Those of its name that are no writer's: of another mode, of another length, a directory, a link.
TEST_F(AtomicFileTest, removesNothingElse) {
  const std::string others[] = {path() + ".new-readme", path() + ".new-1", path() + ".old-123456",
                                path() + ".new-folder"};
  std::ofstream(others[0]) << "text";
  chmod(others[0].c_str(), 0644);
  for (const std::string& other : {others[1], others[2]}) {
    std::ofstream{other} << "text";
    chmod(other.c_str(), 0600);
  }
  std::filesystem::create_directory(others[3]);
  std::filesystem::create_symlink(others[1], path() + ".new-linked");
  AtomicFile(path()).putInPlace();
  EXPECT_EQ(filesThere(), 6);
}

// What is done cannot be taken back, so that a failure now would be a false one.
TEST_F(AtomicFileTest, isInPlaceAlsoWhereTheDirectoryCannotBeBroughtToTheDisk) {
  AtomicFile file(path());
  file.append("new");
  failsForDirectories = true;
  EXPECT_NO_THROW(file.putInPlace());
  failsForDirectories = false;
  EXPECT_EQ(readFile(path()), "new");
}

}  // namespace
