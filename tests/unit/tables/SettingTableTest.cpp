// The programs' table of settings against what the library reads and writes, config/zaro.ini and the manual.
#include "store/SettingTable.h"

#include <algorithm>
#include <iterator>
#include <sstream>
#include <string>

#include "Documents.h"
#include "ZaroPolicyServerInterface.h"
#include "scripted/Prelude.h"

namespace {

using Interface = ZaroPolicyServerInterface;

// Chosen by the LDAP settings below; no other section has the lifetime, so that both of them matter.
constexpr const char* kChosenCacheSection = "LDAP_SVR_5";

std::string sectionOf(const KnownSetting& setting) {
  return setting.section == SettingSection::Cache ? kChosenCacheSection : nameOf(setting.section);
}

std::string valueOf(const KnownSetting& setting) {
  const std::string key = setting.key;
  return key == "access_type" ? "0" : "2";
}

class SettingTable : public PlatformTest, public testing::WithParamInterface<SettingReader> {
 protected:
  // A store with what the table says that the reader reads, and nothing else.
  void SetUp() override {
    for (const KnownSetting& setting : kSettingTable) {
      if (isReadBy(setting, GetParam())) {
        platform().settings.inMemory.set(sectionOf(setting), setting.key, valueOf(setting));
      }
    }
  }

  static unsigned int read() {
    unsigned int number = 0;
    bool keepAlive = false;
    Interface::Protocol protocol = Interface::HTTP;
    std::string host;
    return GetParam() == SettingReader::Server
               ? Interface::getSettingsFromDatabase(number, keepAlive, number, protocol, number, number, number, number,
                                                    number, true)
               : Interface::getClientSettingsFromDatabase(host, number, keepAlive, protocol, number, number, true);
  }
};

TEST_P(SettingTable, hasAllThatTheLibraryReads) {
  EXPECT_EQ(read(), 0u);
}

TEST_P(SettingTable, hasNothingThatTheLibraryDoesNotRead) {
  for (const KnownSetting& setting : kSettingTable) {
    if (isReadBy(setting, GetParam())) {
      platform().settings.inMemory.erase(sectionOf(setting), setting.key);
      EXPECT_NE(read(), 0u) << setting.key << " is missing";
      platform().settings.inMemory.set(sectionOf(setting), setting.key, valueOf(setting));
    }
  }
}

TEST_P(SettingTable, tellsNumbersFromWordsAsTheLibraryDoes) {
  for (const KnownSetting& setting : kSettingTable) {
    if (isReadBy(setting, GetParam())) {
      const bool isServer = GetParam() == SettingReader::Server;
      const auto* rule = isServer ? Interface::findServerRule(setting.key) : Interface::findClientRule(setting.key);
      const bool isNumber = setting.kind == SettingKind::ServerNumber || setting.kind == SettingKind::ClientNumber;
      EXPECT_EQ(rule != nullptr, isNumber) << setting.key;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(, SettingTable, testing::Values(SettingReader::Server, SettingReader::Client),
                         [](const auto& tested) { return tested.param == SettingReader::Server ? "server" : "client"; });

using SettingWriting = PlatformTest;

TEST_F(SettingWriting, isOfWhatTheTableSaysAndInItsOrder) {
  std::vector<std::string> wanted;
  for (const KnownSetting& setting : kSettingTable) {
    if (setting.libraryWrites) {
      wanted.push_back(std::string("policy_server ") + setting.key);
    }
  }
  EXPECT_EQ(Interface::setSettingsInDatabase(1, true, 2, Interface::HTTP, 3, 4, 5), 0u);
  std::vector<std::string> written;
  for (const SettingWrite& write : platform().settings.writes) {
    written.push_back(write.section + " " + write.key);
  }
  EXPECT_EQ(written, wanted);
}

// --- The file and the manual ---

TEST(SettingFile, hasNoneOfTheTable) {
  std::vector<std::string> sections;
  std::string line;
  for (std::istringstream lines(zarotest::sourceFile("home/config/zaro.ini")); std::getline(lines, line);) {
    if (!line.empty() && line[0] == '[') {
      sections.push_back(line);
    }
  }
  // The language of display strings is of the host, and of nobody's policy. All else is shared by default.
  EXPECT_EQ(sections, std::vector<std::string>{"[display]"});
}

// The programs have a default for each key that only they read, the library has none.
TEST(SettingTableRows, haveAValueForNewInstallationsUnlessThereIsADefault) {
  for (const KnownSetting& setting : kSettingTable) {
    const bool byLibrary = isReadBy(setting, SettingReader::Server) || isReadBy(setting, SettingReader::Client);
    EXPECT_EQ(setting.initial != nullptr, byLibrary) << setting.key;
  }
}

const char* shown(SettingReader reader) {
  switch (reader) {
    case SettingReader::Server:
    case SettingReader::ServerProgram:
      return "server";
    case SettingReader::Client:
    case SettingReader::ClientProgram:
      return "client";
    case SettingReader::Filter:
      return "filter";
    case SettingReader::Both:
      break;
  }
  return "server, client";
}

// As the manual shows it.
zarotest::TableRow shown(const KnownSetting& setting) {
  const char* section = nameOf(setting.section);
  return {section != nullptr ? "`" + std::string(section) + "`" : "that of the LDAP cache",
          "`" + std::string(setting.key) + "`", shown(setting.reader),
          setting.initial != nullptr ? setting.initial : "nothing"};
}

TEST(SettingManual, hasWhatTheTableHas) {
  std::vector<zarotest::TableRow> wanted;
  std::transform(std::begin(kSettingTable), std::end(kSettingTable), std::back_inserter(wanted),
                 [](const KnownSetting& setting) { return shown(setting); });
  std::vector<zarotest::TableRow> rows =
      zarotest::tableOf("docs/zaroctl.md", "| section | key | read by | at first | value |");
  for (zarotest::TableRow& row : rows) {
    row.resize(4);  // the values are for readers
  }
  EXPECT_THAT(rows, testing::UnorderedElementsAreArray(wanted));
}

}  // namespace
