// Writers of settings that meet, and writers that are killed.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <filesystem>
#include <functional>
#include <iostream>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "GlobalSetting.h"
#include "ZaroRuntime/IniFile.h"
#include "support/TestInstallation.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::microseconds;
using ZARO::GlobalSettingIF;
using zaroruntime::IniFile;

constexpr const char* kFile = "zaro.ini";

// Runs `body` in a child process, whose exit status is its answer.
pid_t startChild(const std::function<int()>& body) {
  const pid_t child = fork();
  if (child == 0) {
    _exit(body());
  }
  return child;
}

int statusOf(pid_t child) {
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  return status;
}

class SettingsUnderLoad : public zarotest::OnEveryDatabase {
 protected:
  std::string path() const { return home().installation().settingsIni(); }
  std::string text() const { return zarotest::readFile(path()); }
};

TEST_P(SettingsUnderLoad, eightProcessesLoseNoWrite) {
  constexpr int kProcesses = 8;
  constexpr int kWrites = 50;
  const std::string before = text();
  std::vector<pid_t> children;
  for (int number = 0; number < kProcesses; ++number) {
    children.push_back(startChild([number] {
      GlobalSettingIF store;
      for (int i = 1; i <= kWrites; ++i) {
        // One key that is written again and again, and one that is written once.
        const std::string own = "process" + std::to_string(number);
        const std::string once = own + "-" + std::to_string(i);
        const std::string value = std::to_string(i);
        // A write that has waited for the others too long is refused, and made again.
        int attempts = 10;
        while (store.setItem((i % 2 == 0 ? own : once).c_str(), value.c_str(), "load", kFile) != 0) {
          if (--attempts == 0) {
            return 1;
          }
        }
      }
      return 0;
    }));
  }
  for (const pid_t child : children) {
    EXPECT_EQ(statusOf(child), 0);
  }

  const IniFile file(path(), IniFile::Malformed::Refused);
  EXPECT_EQ(file.items("load").size(), static_cast<std::size_t>(kProcesses * (1 + kWrites / 2)));
  for (int number = 0; number < kProcesses; ++number) {
    const std::string own = "process" + std::to_string(number);
    EXPECT_EQ(file.get("load", own), std::to_string(kWrites));
    for (int i = 1; i <= kWrites; i += 2) {
      EXPECT_EQ(file.get("load", own + "-" + std::to_string(i)), std::to_string(i));
    }
  }
  EXPECT_EQ(text().compare(0, before.size(), before), 0) << "what was there before is as it was";
  EXPECT_EQ(home().value("SELECT count(*) FROM global_setting WHERE section='load'"),
            std::to_string(kProcesses * (1 + kWrites / 2)));
  EXPECT_EQ(home().value("SELECT count(*) FROM global_setting WHERE value='" + std::to_string(kWrites) + "'"),
            std::to_string(kProcesses));
}

// --- Killed writers ---

// A child that writes one value, and says so on a pipe right before.
class Writer {
 public:
  explicit Writer(const std::string& value) {
    std::array<int, 2> ends{};
    EXPECT_EQ(pipe(ends.data()), 0);
    m_child = startChild([&] {
      GlobalSettingIF store;
      if (write(ends[1], "x", 1) != 1) {
        return 2;
      }
      return store.setItem("backlog", value.c_str(), "policy_server", kFile);
    });
    close(ends[1]);
    char sign = 0;
    EXPECT_EQ(read(ends[0], &sign, 1), 1);
    close(ends[0]);
  }

  void killAfter(microseconds time) const {
    std::this_thread::sleep_for(time);
    kill(m_child, SIGKILL);
  }

  // Whether it was killed; otherwise it must have succeeded.
  bool wasKilled() const {
    const int status = statusOf(m_child);
    EXPECT_TRUE(WIFSIGNALED(status) || status == 0);
    return WIFSIGNALED(status);
  }

 private:
  pid_t m_child = -1;
};

microseconds usualTimeOfAWrite(int writes) {
  const Clock::time_point begin = Clock::now();
  for (int i = 0; i < writes; ++i) {
    EXPECT_FALSE(Writer("1").wasKilled());
  }
  return std::chrono::duration_cast<microseconds>(Clock::now() - begin) / writes;
}

struct Counts {
  int kills = 0;
  int foundOld = 0;
  int foundNew = 0;
  int foundTemporary = 0;  // a temporary file lay there, from this writer or one killed before
  int tooLate = 0;         // the writer had ended
};

TEST_P(SettingsUnderLoad, killsLeaveTheOldFileOrTheNewOne) {
  constexpr int kKills = 200;
  const std::string skeleton = text();
  const auto withBacklog = [&](const std::string& value) {
    std::string changed = skeleton;
    return changed.replace(changed.find("backlog=100"), 11, "backlog=" + value);
  };
  // From before the write to behind it, so that the kills fall everywhere in between.
  const microseconds longest = usualTimeOfAWrite(20);
  std::mt19937 random(1);  // NOLINT(cert-msc51-cpp): the same pauses every time
  std::uniform_int_distribution<microseconds::rep> pause(0, longest.count());

  std::string current = "1";
  Counts counts;
  for (int value = 2; counts.kills < kKills; ++value) {
    const std::string next = std::to_string(value);
    const Writer writer(next);
    writer.killAfter(microseconds(pause(random)));
    const bool killed = writer.wasKilled();
    counts.kills += killed ? 1 : 0;
    counts.tooLate += killed ? 0 : 1;
    counts.foundTemporary += std::filesystem::exists(path() + ".new") ? 1 : 0;

    const std::string now = text();
    if (now == withBacklog(next)) {
      counts.foundNew += killed ? 1 : 0;
      current = next;
      continue;
    }
    ASSERT_TRUE(killed) << "a write that succeeded is there";
    ASSERT_EQ(now, withBacklog(current)) << "after kill " << counts.kills;
    ++counts.foundOld;
  }
  std::cout << counts.kills << " kills: old value " << counts.foundOld << ", new value " << counts.foundNew
            << "; a temporary file lay there after " << counts.foundTemporary << "; " << counts.tooLate
            << " writers ended before their kill\n";

  // Otherwise the kills all fell on one side, and the experiment says nothing. On a file system in memory few find a
  // writer that has put the new file in place and not ended yet.
  EXPECT_GT(counts.foundOld, 0);
  EXPECT_GT(counts.foundNew + counts.tooLate, 0);
  EXPECT_GT(counts.foundTemporary, 0);
  EXPECT_EQ(IniFile(path(), IniFile::Malformed::Refused).get("policy_server", "backlog"), current);
  EXPECT_FALSE(Writer("77").wasKilled());
  EXPECT_EQ(text(), withBacklog("77"));
  EXPECT_FALSE(std::filesystem::exists(path() + ".new"));
  EXPECT_EQ(home().value("SELECT value FROM global_setting WHERE name='backlog'"), "77");
}

ZARO_ON_EVERY_DATABASE(SettingsUnderLoad);

}  // namespace
