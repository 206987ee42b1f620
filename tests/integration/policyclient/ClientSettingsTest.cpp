#include "store/ClientSettings.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "ZaroRuntime/RuntimeError.h"
#include "store/SettingTable.h"
#include "support/TemporaryDirectory.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using zaroruntime::Installation;
using zaroruntime::Settings;

constexpr const char* kLibrarys =
    "[policy_server]\nPolicyServerPort=5060\nkeep-alive=no\nprotocol=HTTPS\n"
    "[policy_client]\nrecv_timeout_secs=7\nsend_timeout_secs=8\n";

// An installation that has a file of settings, and nothing else.
class ClientSettingsTest : public testing::Test {
 protected:
  void SetUp() override {
    std::filesystem::create_directory(m_directory.path("config"));
    setenv("ZARO_HOME", m_directory.path("").c_str(), 1);
    unsetenv("ZARO_DB_INI");
  }

  static Installation write(const std::string& own) {
    Installation installation = Installation::fromEnvironment();
    std::ofstream(installation.settingsIni()) << kLibrarys << own;
    return installation;
  }

  static ClientSettings settingsOf(const std::string& own) {
    const Installation installation = write(own);
    return clientSettings(installation, zaroruntime::readSettings(installation));
  }

  static std::string refusalOf(const Installation& installation, const Settings& stored) {
    try {
      clientSettings(installation, stored);
    } catch (const zaroruntime::RuntimeError& refusal) {
      return refusal.what();
    }
    return "";
  }

  static std::string refusalOf(const std::string& own) {
    const Installation installation = write(own);
    return refusalOf(installation, zaroruntime::readSettings(installation));
  }

 private:
  zarotest::TemporaryDirectory m_directory;
};

std::vector<std::string> textsOf(const ClientSettings& settings) {
  std::vector<std::string> texts;
  for (const PolicyServerAddress& server : settings.servers) {
    texts.push_back(server.text());
  }
  return texts;
}

TEST_F(ClientSettingsTest, areReadWithoutADatabase) {
  const ClientSettings settings = settingsOf("host=policy.example.test\n");
  EXPECT_THAT(textsOf(settings), ElementsAre("policy.example.test:5060"));
  EXPECT_TRUE(settings.usesTls);
  EXPECT_FALSE(settings.keepAlive);
  EXPECT_EQ(settings.receiveTimeout.count(), 7);
  EXPECT_EQ(settings.sendTimeout.count(), 8);
  EXPECT_EQ(settings.ca + settings.certificate + settings.privateKey + settings.tokenFile, "");
}

// The library looks at the installation, whose file has less than what was kept.
TEST_F(ClientSettingsTest, areWhatWasKeptOfADatabaseThatDoesNotAnswer) {
  using zaroruntime::SettingLayer;
  Settings stored;
  stored.databaseFailure = "the database does not answer";
  const auto keep = [&](const char* section, const char* key, const char* value) {
    stored.sections[section][key] = {value, SettingLayer::Database, std::nullopt};
  };
  keep(kServerSection, "PolicyServerPort", "7070");
  keep(kServerSection, "keep-alive", "Yes");
  keep(kServerSection, "protocol", "https");
  keep(kServerSection, "recv_timeout_secs", "11");
  keep(kClientSection, "send_timeout_secs", "9999");
  const Installation installation = Installation::fromEnvironment();
  EXPECT_THAT(refusalOf(installation, stored),
              HasSubstr("[policy_client] host is missing in zaro.ini, and the database"));
  keep(kClientSection, "host", "a b");
  EXPECT_THAT(refusalOf(installation, stored), HasSubstr("[policy_client] host: \"a b\" is not the name"));
  keep(kClientSection, "host", "a.test");
  keep(kClientSection, "ca", "config/ca.pem");
  const ClientSettings settings = clientSettings(installation, stored);
  EXPECT_THAT(textsOf(settings), ElementsAre("a.test:7070"));
  EXPECT_TRUE(settings.usesTls);
  EXPECT_TRUE(settings.keepAlive);
  EXPECT_EQ(settings.receiveTimeout.count(), 11);
  EXPECT_EQ(settings.sendTimeout.count(), 300);
  EXPECT_EQ(settings.ca, installation.path("config/ca.pem"));
}

TEST_F(ClientSettingsTest, nameSeveralServersWithCommas) {
  EXPECT_THAT(textsOf(settingsOf("host=a.test,192.0.2.1,2001:db8::1\n")),
              ElementsAre("a.test:5060", "192.0.2.1:5060", "[2001:db8::1]:5060"));
  EXPECT_THAT(settingsOf("host=\n").servers, IsEmpty());
}

TEST_F(ClientSettingsTest, nameFilesOfTheInstallation) {
  const ClientSettings settings =
      settingsOf("host=a\nca=/etc/ca.pem\ncertificate=config/client.pem\nprivate_key=config/client.key\ntoken_file=t\n");
  const Installation installation = Installation::fromEnvironment();
  EXPECT_EQ(settings.ca, "/etc/ca.pem");
  EXPECT_EQ(settings.certificate, installation.path("config/client.pem"));
  EXPECT_EQ(settings.privateKey, installation.path("config/client.key"));
  EXPECT_EQ(settings.tokenFile, installation.path("t"));
}

TEST_F(ClientSettingsTest, areRefusedWithAReason) {
  EXPECT_THAT(refusalOf(""), HasSubstr("[policy_client] host is missing"));
  EXPECT_THAT(refusalOf("host=user@a.test\n"), HasSubstr("[policy_client] host: \"user@a.test\" is not the name"));
  EXPECT_THAT(refusalOf("host=a.test,\n"), HasSubstr("[policy_client] host: "));
}

TEST(ClientSettingHosts, areNamesAndAddresses) {
  for (const char* text : {"", "a", "a.example.test", "192.0.2.1", "2001:db8::1", "::1", "a,b", "under_score"}) {
    EXPECT_EQ(whyNoHosts(text), "") << text;
  }
  for (const char* text : {"a b", "a\nb", "a/b", "a:5060", "a@b", "a,,b", ",", "a,", "[::1]", "a?b", "a#b", "a%41"}) {
    EXPECT_EQ(whyNoHosts(text), "not the name or address of a host") << text;
  }
}

TEST(ClientSettingKeys, areThoseOfTheTable) {
  std::vector<std::string> table;
  for (const KnownSetting& setting : kSettingTable) {
    if (isReadBy(setting, SettingReader::ClientProgram)) {
      table.emplace_back(setting.key);
    }
  }
  std::vector<std::string> read;
  for (const ReadSetting& setting : readAsClient(Settings()).settings) {
    if (setting.stored == nullptr && setting.value == "") {
      read.push_back(setting.key);
    }
  }
  EXPECT_EQ(read, table);
}

TEST(ClientSettingKeys, areNotThoseOfTheServer) {
  Settings stored;
  stored.sections[kServerSection]["certificate"].value = "server.pem";
  for (const ReadSetting& setting : readAsClient(stored).settings) {
    EXPECT_NE(setting.value, "server.pem") << setting.key;
  }
}

}  // namespace
