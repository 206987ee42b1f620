// Log lines hide passwords, and no text forges or floods them.
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <new>
#include <thread>
#include <vector>

#include "PolicyLog.h"
#include "log/LogLine.h"
#include "support/FailingAllocations.h"
#include "support/ProcessTest.h"
#include "support/TemporaryDirectory.h"

namespace {

using testing::AllOf;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;
using zaroruntime::asOneLine;
using zaroruntime::withoutPasswords;
using zarotest::readFile;
using zarotest::TemporaryDirectory;

struct MaskCase {
  const char* label;
  const char* text;
  const char* want;
};

const MaskCase kMaskCases[] = {
    {"none", "nothing to hide", "nothing to hide"},
    {"plain", "UID=u;PWD=secret;DATABASE=d)", "UID=u;PWD=********;DATABASE=d)"},
    {"empty password", "PWD=;DATABASE=d", "PWD=********;DATABASE=d"},
    {"semicolons in the password", "PWD=a;b;c;DATABASE=d", "PWD=********;DATABASE=d"},
    {"database key in the password", "PWD=a;DATABASE=b;DATABASE=d", "PWD=********;DATABASE=d"},
    {"password key in the password", "PWD=aPWD=b;DATABASE=d", "PWD=********;DATABASE=d"},
    {"cut behind the password", "PWD=secr", "PWD=********"},
    {"cut within the key", "PWD=secret;DATABA", "PWD=********"},
    {"database before", "x;DATABASE=d;PWD=secret", "x;DATABASE=d;PWD=********"},
    {"lower case", "pwd=secret;DATABASE=d", "pwd=********;DATABASE=d"},
};

TEST(LogLine, passwordsAreHidden) {
  for (const MaskCase& test : kMaskCases) {
    EXPECT_EQ(withoutPasswords(test.text), test.want) << test.label;
  }
}

TEST(LogLine, controlCharactersCannotForgeLines) {
  EXPECT_EQ(asOneLine("a\nerror: b\x1b[31m\x7f\t"), "a\\nerror: b\\x1b[31m\\x7f\\t");
  EXPECT_EQ(asOneLine("\xc2\x9b"
                      "31m \xff \\"),
            "\\xc2\\x9b31m \\xff \\\\");
  EXPECT_EQ(asOneLine("Init() ...\n"), "Init() ...");
  EXPECT_EQ(asOneLine("äé漢"), "äé漢");
}

TEST(LogLine, longLinesAreCutAndCounted) {
  const std::string line = asOneLine(std::string(20000, 'x'));
  EXPECT_EQ(line, std::string(16384, 'x') + " ... (3616 bytes more)");
}

PROCESS_TEST(PolicyLog, fileHasModeAndLines) {
  const TemporaryDirectory directory;
  const std::string path = directory.path("log");
  setenv("ZARO_LOG", path.c_str(), 1);
  unsetenv("ZARO_LOG_LEVEL");
  PolicyLog::log(LogLevel::Error, "connection string is %s\n", "UID=u;PWD=secret;DATABASE=d");
  PolicyLog::log(LogLevel::Warning, "number %d", 7);
  PolicyLog::log(LogLevel::Trace, "not shown by default");
  const std::string text = readFile(path);
  EXPECT_THAT(
      text, ContainsRegex("^[0-9-]+T[0-9:.]+Z zaro\\[[0-9]+\\] error: connection string is UID=u;PWD=[*]+;DATABASE=d\n"));
  EXPECT_THAT(text, HasSubstr("warning: number 7\n"));
  EXPECT_THAT(text, Not(HasSubstr("secret")));
  EXPECT_THAT(text, Not(HasSubstr("not shown")));
  struct stat status = {};
  ASSERT_EQ(stat(path.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0600u);
}

PROCESS_TEST(PolicyLog, lackOfMemoryCostsTheLineAndNothingElse) {
  const TemporaryDirectory directory;
  const std::string path = directory.path("a name that no string keeps inside itself");
  setenv("ZARO_LOG", path.c_str(), 1);
  bool thrown = false;
  const bool reached = failsAt(1, [&] {
    try {
      PolicyLog::log(LogLevel::Error, "lost");
    } catch (const std::bad_alloc&) {
      thrown = true;
    }
  });
  EXPECT_TRUE(reached && !thrown);
  PolicyLog::log(LogLevel::Error, "kept");
  EXPECT_THAT(readFile(path), AllOf(HasSubstr(" error: kept\n"), Not(HasSubstr("lost"))));
}

PROCESS_TEST(PolicyLog, fileOpenToOthersIsClosedToThem) {
  const TemporaryDirectory directory;
  const std::string path = directory.write("log", "old\n", 0666);
  setenv("ZARO_LOG", path.c_str(), 1);
  PolicyLog::log(LogLevel::Error, "new");
  struct stat status = {};
  ASSERT_EQ(stat(path.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0600u);
  EXPECT_THAT(readFile(path), ContainsRegex("^old\n.* error: new\n$"));
}

PROCESS_TEST(PolicyLog, movedFileIsOpenedAnew) {
  const TemporaryDirectory directory;
  const std::string path = directory.path("log");
  setenv("ZARO_LOG", path.c_str(), 1);
  PolicyLog::log(LogLevel::Error, "one");
  std::filesystem::rename(path, directory.path("log.1"));
  PolicyLog::log(LogLevel::Error, "two");
  EXPECT_THAT(readFile(directory.path("log.1")), HasSubstr("one"));
  EXPECT_THAT(readFile(path), HasSubstr("two"));
}

PROCESS_TEST(PolicyLog, linkIsNotFollowed) {
  const TemporaryDirectory directory;
  const std::string victim = directory.write("victim", "");
  std::filesystem::create_symlink(victim, directory.path("log"));
  setenv("ZARO_LOG", directory.path("log").c_str(), 1);
  testing::internal::CaptureStderr();
  PolicyLog::log(LogLevel::Error, "to standard error");
  EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("error: to standard error\n"));
  EXPECT_EQ(readFile(victim), "");
}

PROCESS_TEST(PolicyLog, levelLimitsWhatIsShown) {
  unsetenv("ZARO_LOG");
  setenv("ZARO_LOG_LEVEL", "1", 1);
  testing::internal::CaptureStderr();
  PolicyLog::log(LogLevel::Trace, "trace");
  PolicyLog::log(LogLevel::Warning, "warning");
  PolicyLog::log(LogLevel::Error, "%s", std::string(5000, 'e').c_str());
  EXPECT_THAT(testing::internal::GetCapturedStderr(), ContainsRegex("^[^\n]* error: e+\n$"));
}

PROCESS_TEST(PolicyLog, unknownLevelIsToldAndDoesNotSilenceErrors) {
  unsetenv("ZARO_LOG");
  setenv("ZARO_LOG_LEVEL", "error", 1);
  testing::internal::CaptureStderr();
  PolicyLog::log(LogLevel::Error, "an error");
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              AllOf(HasSubstr("ZARO_LOG_LEVEL is no level"), HasSubstr("error: an error\n")));
}

PROCESS_TEST(PolicyLog, levelZeroSilencesEverything) {
  unsetenv("ZARO_LOG");
  setenv("ZARO_LOG_LEVEL", "0", 1);
  testing::internal::CaptureStderr();
  PolicyLog::log(LogLevel::Error, "an error");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

// The system log is a socket that tests cannot read everywhere; a process of its own shows that nothing goes elsewhere.
PROCESS_TEST(PolicyLog, systemLogKeepsStandardErrorFree) {
  setenv("ZARO_LOG", "syslog", 1);
  testing::internal::CaptureStderr();
  PolicyLog::log(LogLevel::Error, "to the system log");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

PROCESS_TEST(PolicyLog, linesOfThreadsDoNotMix) {
  const TemporaryDirectory directory;
  const std::string path = directory.path("log");
  setenv("ZARO_LOG", path.c_str(), 1);
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 8; ++thread) {
    threads.emplace_back([thread] {
      for (int line = 0; line < 200; ++line) {
        PolicyLog::log(LogLevel::Error, "%s", std::string(100, static_cast<char>('a' + thread)).c_str());
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  const std::string text = readFile(path);
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1600);
  for (char sign = 'a'; sign < 'a' + 8; ++sign) {
    EXPECT_THAT(text, HasSubstr("error: " + std::string(100, sign) + "\n"));
  }
}

}  // namespace
