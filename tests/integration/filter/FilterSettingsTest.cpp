#include "store/FilterSettings.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ZaroRuntime/RuntimeError.h"
#include "store/SettingTable.h"

namespace {

using zaroruntime::Settings;

Settings withSetting(const std::string& key, const std::string& value) {
  Settings settings;
  settings.sections[kFilterSection][key].value = value;
  return settings;
}

FilterSettings settingsOf(const Settings& stored) {
  return filterSettings(zaroruntime::Installation("/opt/gateway"), stored);
}

TEST(FilterSettings, areThoseOfTheTable) {
  std::vector<std::string> table;
  for (const KnownSetting& setting : kSettingTable) {
    if (isReadBy(setting, SettingReader::Filter)) {
      table.emplace_back(setting.key);
    }
  }
  std::vector<std::string> read;
  for (const ReadSetting& setting : readAsFilter(Settings()).settings) {
    read.push_back(setting.key);
  }
  EXPECT_EQ(read, table);
}

TEST(FilterSettings, areNotNeeded) {
  const ReadSettings read = readAsFilter(Settings());
  EXPECT_TRUE(read.isComplete());
  for (const ReadSetting& setting : read.settings) {
    EXPECT_EQ(whyNoFilterValue(setting.key, setting.value.get<std::string>()), "") << setting.key;
  }
  const FilterSettings settings = settingsOf(Settings());
  EXPECT_EQ(settings.socket, "unix:/opt/gateway/run/zarofilterd.sock");
  EXPECT_EQ(settings.socketMode, 0660u);
  EXPECT_EQ(settings.stateDirectory, "/opt/gateway/state");
  EXPECT_FALSE(settings.acceptWithoutPolicy);
  EXPECT_FALSE(settings.decisions.shadow);
  EXPECT_TRUE(settings.decisions.stripBatv);
  EXPECT_FALSE(settings.decisions.stripSrs);
  EXPECT_TRUE(settings.decisions.exemptAuthenticated);
}

struct ValueCase {
  const char* key;
  const char* value;
  bool isOne;
};

const ValueCase kValueCases[] = {
    {"socket", "unix:/run/zaro/filter.sock", true},
    {"socket", "inet:8890@127.0.0.1", true},
    {"socket", "inet:8890@::1", true},
    {"socket", "", false},
    {"socket", "unix:", false},
    {"socket", "/run/zaro/filter.sock", false},
    {"socket", "inet:8890", false},
    {"socket", "inet:0@127.0.0.1", false},
    {"socket", "inet:65536@127.0.0.1", false},
    {"socket", "inet:8890@mail.example.test", false},
    {"policy_socket", "", true},
    {"policy_socket", "nonsense", false},
    {"socket_mode", "0666", true},
    {"socket_mode", "660", true},
    {"socket_mode", "0060", false},
    {"socket_mode", "0888", false},
    {"socket_mode", "4660", false},
    {"socket_mode", "", false},
    {"socket_group", "", true},
    {"socket_group", "postfix", true},
    {"socket_group", "a b", false},
    {"on_failure", "accept", true},
    {"on_failure", "reject", false},
    {"shadow", "YES", true},
    {"shadow", "maybe", false},
    {"poll_secs", "1", true},
    {"poll_secs", "3600", true},
    {"poll_secs", "0", false},
    {"poll_secs", "3601", false},
    {"poll_secs", "often", false},
    {"header", "X-Policy", true},
    {"header", "", false},
    {"header", "X Policy", false},
    {"header", "X:Policy", false},
    {"header", "subject", false},
    {"header", "Received", false},
    {"delimiter", "", true},
    {"delimiter", "+-", true},
    {"delimiter", "a", false},
    {"delimiter", "@", false},
    {"delimiter", "+ ", false},
    {"strip_batv", "no", true},
    {"strip_srs", "1", false},
    {"exempt_authenticated", "", false},
    {"metrics", "", true},
    {"metrics", "127.0.0.1:9100", true},
    {"metrics", "[::1]:9100", true},
    {"metrics", "0.0.0.0:9100", false},
    {"metrics", "192.0.2.1:9100", false},
    {"metrics", "127.0.0.1", false},
    {"metrics", "127.0.0.1:0", false},
    {"source", "policy_server", true},
    {"source", "file", false},
    {"state_dir", "/var/lib/zaro/state", true},
    {"state_dir", "", false},
};

TEST(FilterSettings, refuseAbsurdValues) {
  for (const ValueCase& row : kValueCases) {
    EXPECT_EQ(whyNoFilterValue(row.key, row.value).empty(), row.isOne) << row.key << "=" << row.value;
  }
}

TEST(FilterSettings, refuseToBeReadWithAnAbsurdValue) {
  const Settings stored = withSetting("poll_secs", "0");
  const ReadSettings read = readAsFilter(stored);
  EXPECT_FALSE(read.isComplete());
  EXPECT_EQ(whyUnreadable("the mail filter", read),
            "the mail filter cannot use its settings: [mail_filter] poll_secs: \"0\" is below 1");
  EXPECT_THROW(settingsOf(stored), zaroruntime::RuntimeError);
}

TEST(FilterSettings, refuseOneSocketForMilterAndDelegation) {
  const struct {
    const char* socket;
    const char* policySocket;
    bool areOne;
  } kRows[] = {
      {"unix:run/zarofilterd.sock", "unix:run/zarofilterd.sock", true},
      {"unix:run/zarofilterd.sock", "unix:/opt/gateway/run/zarofilterd.sock", true},
      {"unix:run/zarofilterd.sock", "unix:run/../run//zarofilterd.sock", true},
      {"inet:8890@127.0.0.1", "inet:8890@127.0.0.1", true},
      {"unix:run/zarofilterd.sock", "unix:run/policy.sock", false},
      {"inet:8890@127.0.0.1", "inet:8891@127.0.0.1", false},
      {"unix:run/zarofilterd.sock", "", false},
  };
  for (const auto& row : kRows) {
    Settings stored = withSetting("socket", row.socket);
    stored.sections[kFilterSection]["policy_socket"].value = row.policySocket;
    std::string why;
    try {
      settingsOf(stored);
    } catch (const zaroruntime::RuntimeError& refusal) {
      why = refusal.what();
    }
    EXPECT_EQ(why.find("is the socket of the milter as well") != std::string::npos, row.areOne) << row.policySocket;
    EXPECT_EQ(why.empty(), !row.areOne) << why;
  }
}

TEST(FilterSettings, takeAddressesOfBothFamilies) {
  EXPECT_EQ(settingsOf(withSetting("socket", "inet:8890@127.0.0.1")).socket, "inet:8890@127.0.0.1");
  EXPECT_EQ(settingsOf(withSetting("socket", "inet:8890@::1")).socket, "inet6:8890@::1");
  EXPECT_THROW(settingsOf(withSetting("socket", "unix:" + std::string(100, 'x'))), zaroruntime::RuntimeError);
}

}  // namespace
