#include "store/ServerSettings.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "store/DefaultedSettings.h"
#include "store/SettingTable.h"

namespace {

using zaroruntime::Settings;

TEST(ServerSettings, ofTheProgramAreThoseOfTheTableAndAreNotNeeded) {
  std::vector<std::string> table;
  for (const KnownSetting& setting : kSettingTable) {
    if (isReadBy(setting, SettingReader::ServerProgram)) {
      table.emplace_back(setting.key);
    }
  }
  ReadSettings read{{}, 0, ""};
  readServerOnly(Settings(), read);
  EXPECT_TRUE(read.isComplete());
  std::vector<std::string> keys;
  for (const ReadSetting& setting : read.settings) {
    keys.push_back(setting.key);
    EXPECT_EQ(whyNoServerValue(setting.key, setting.value.get<std::string>()), "") << setting.key;
  }
  EXPECT_EQ(keys, table);
}

struct ValueCase {
  const char* key;
  const char* value;
  bool isOne;
};

const ValueCase kValueCases[] = {
    {"address", "127.0.0.1", true},
    {"address", "0.0.0.0", true},
    {"address", "::", true},
    {"address", "2001:db8::1", true},
    {"address", "", false},
    {"address", "policy.example.test", false},
    {"address", "127.0.0.1:5060", false},
    {"address", "[::1]", false},
    {"certificate", "", true},
    {"certificate", "/etc/ssl/zaro.pem", true},
    {"certificate", "a\nb", false},
    {"private_key", "config/key.pem", true},
    {"client_ca", "\x01", false},
    {"token_file", "config/token", true},
};

TEST(ServerSettings, refuseAbsurdValues) {
  for (const ValueCase& row : kValueCases) {
    EXPECT_EQ(whyNoServerValue(row.key, row.value).empty(), row.isOne) << row.key << "=" << row.value;
  }
}

struct AddressCase {
  const char* address;
  bool isLoopback;
};

const AddressCase kAddressCases[] = {
    {"127.0.0.1", true}, {"127.255.0.9", true}, {"::1", true},        {"::ffff:127.0.0.1", true},  {"0.0.0.0", false},
    {"::", false},       {"192.0.2.1", false},  {"128.0.0.1", false}, {"::ffff:192.0.2.1", false}, {"nonsense", false},
};

TEST(ServerSettings, tellTheLoopbackInterface) {
  for (const AddressCase& row : kAddressCases) {
    EXPECT_EQ(isLoopback(row.address), row.isLoopback) << row.address;
  }
}

}  // namespace
