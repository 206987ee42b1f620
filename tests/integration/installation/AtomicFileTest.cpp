#include "installation/AtomicFile.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

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
