// zaroctl servers: policy servers are listed, added and removed.
#include <filesystem>
#include <nlohmann/json.hpp>

#include "programs/ProgramTest.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
using zarotest::linesOf;
using zarotest::ProgramResult;

class Servers : public zarotest::ProgramTest {
 protected:
  std::vector<std::string> list() const {
    const ProgramResult result = run({"servers", "list"});
    EXPECT_EQ(result.status, 0) << result.err;
    return linesOf(result.out);
  }
};

TEST_P(Servers, areListedByNumber) {
  mustInit({"--sample"});
  EXPECT_THAT(list(), ElementsAre("1\t192.0.2.10\t15505", "2\t192.0.2.11\t15505", "3\t2001:db8::12\t15505"));
  const auto document = nlohmann::json::parse(run({"servers", "list", "--json"}).out);
  ASSERT_EQ(document.size(), 3u);
  EXPECT_EQ(document[2], (nlohmann::json{{"id", 3}, {"address", "2001:db8::12"}, {"port", 15505}}));
}

TEST_P(Servers, maybeThereAreNone) {
  mustInit();
  EXPECT_THAT(list(), IsEmpty());
  EXPECT_EQ(run({"servers", "list", "--json"}).out, "[]\n");
}

TEST_P(Servers, areAddedAndRemoved) {
  mustInit();
  const ProgramResult added = run({"servers", "add", "2147483647", "2001:db8::1", "65535"});
  EXPECT_EQ(added.status, 0) << added.err;
  EXPECT_THAT(linesOf(added.out), ElementsAre("id\t2147483647", "address\t2001:db8::1", "port\t65535"));
  EXPECT_EQ(run({"servers", "add", "1", "192.0.2.1", "1"}).status, 0);
  EXPECT_THAT(list(), ElementsAre("1\t192.0.2.1\t1", "2147483647\t2001:db8::1\t65535"));
  const ProgramResult removed = run({"servers", "remove", "--json", "1"});
  EXPECT_EQ(removed.status, 0);
  EXPECT_EQ(nlohmann::json::parse(removed.out), (nlohmann::json{{"id", 1}, {"address", "192.0.2.1"}, {"port", 1}}));
  EXPECT_THAT(list(), ElementsAre("2147483647\t2001:db8::1\t65535"));
}

// What is acknowledged is the change, whatever the list that others change too shows afterwards.
TEST_P(Servers, changesNeedNoListAfterwards) {
  mustInit({"--sample"});
  std::filesystem::remove(homeFile("sql/ui_GetComponentInfo.sql"));
  EXPECT_EQ(run({"servers", "add", "9", "192.0.2.9", "15505"}).status, 0);
  EXPECT_EQ(run({"servers", "remove", "1"}).status, 0);
  EXPECT_EQ(value("SELECT count(*) FROM component WHERE type = 'P' AND scanner_id = 9"), "1");
  EXPECT_EQ(value("SELECT count(*) FROM component WHERE type = 'P' AND scanner_id = 1"), "0");
}

TEST_P(Servers, numberThatIsTakenIsRefused) {
  mustInit({"--sample"});
  const ProgramResult result = run({"servers", "add", "2", "192.0.2.99", "5"});
  EXPECT_EQ(result.status, 77);
  EXPECT_EQ(result.err, "zaroctl: policy server 2 is registered already, at 192.0.2.11 port 15505; remove it first\n");
  EXPECT_EQ(list().size(), 3u);
}

TEST_P(Servers, numberOfAnotherKindOfComponentIsFree) {
  mustInit({"--sample"});
  EXPECT_EQ(run({"servers", "add", "4", "192.0.2.99", "5"}).status, 0);
  EXPECT_EQ(run({"servers", "remove", "4"}).status, 0);
  EXPECT_EQ(value("SELECT count(*) FROM component WHERE type = 'S'"), "2");
}

TEST_P(Servers, unknownNumberIsNotFound) {
  mustInit({"--sample"});
  const ProgramResult result = run({"servers", "remove", "9"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err, "zaroctl: no policy server 9\n");
}

TEST_P(Servers, numbersAreDecimal) {
  mustInit();
  EXPECT_EQ(run({"servers", "add", "010", "192.0.2.1", "017"}).status, 0);
  EXPECT_THAT(list(), ElementsAre("10\t192.0.2.1\t17"));
  EXPECT_EQ(run({"servers", "remove", "0010"}).status, 0);
  EXPECT_THAT(list(), IsEmpty());
}

TEST_P(Servers, listThatCannotBeReadIsAFailure) {
  mustInit({"--sample"});
  writeFile("sql/ui_GetComponentInfo.sql",
            "SELECT scanner_id, NULL AS \"ip_addr\", agent_port FROM component WHERE type='%s'");
  const ProgramResult null = run({"servers", "list"});
  EXPECT_EQ(null.status, 65);
  EXPECT_EQ(null.err, "zaroctl: cannot list the policy servers (code 1002): a column of one is NULL\n");
  writeFile("sql/ui_GetComponentInfo.sql", "SELECT nothing FROM component WHERE type='%s'");
  const ProgramResult broken = run({"servers", "list"});
  EXPECT_EQ(broken.status, 69);
  EXPECT_THAT(broken.err, StartsWith("zaroctl: cannot list the policy servers: "));
  EXPECT_EQ(linesOf(broken.err).size(), 1u);
}

ZARO_ON_EVERY_DATABASE(Servers);

struct WrongServer {
  const char* label;
  std::vector<std::string> arguments;
  const char* told;
};

const WrongServer kWrongServers[] = {
    {"idZero", {"add", "0", "192.0.2.1", "1"}, "ID: \"0\" is not a number from 1 to 2147483647"},
    {"idTooHigh", {"add", "2147483648", "192.0.2.1", "1"}, "ID"},
    {"idHexadecimal", {"add", "0x7", "192.0.2.1", "1"}, "ID: \"0x7\" is not a number"},
    {"idWithPlus", {"add", "+9", "192.0.2.1", "1"}, "ID: \"+9\" is not a number"},
    {"idNegative", {"add", "--", "-1", "192.0.2.1", "1"}, "ID: \"-1\" is not a number"},
    {"portHexadecimal", {"add", "1", "192.0.2.1", "0x7"}, "PORT: \"0x7\" is not a number"},
    {"removeHexadecimal", {"remove", "0x7"}, "ID: \"0x7\" is not a number"},
    {"idNoNumber", {"add", "x", "192.0.2.1", "1"}, "ID"},
    {"portZero", {"add", "1", "192.0.2.1", "0"}, "PORT: \"0\" is not a number from 1 to 65535"},
    {"portTooHigh", {"add", "1", "192.0.2.1", "65536"}, "PORT: \"65536\" is not a number from 1 to 65535"},
    {"hostName", {"add", "1", "policy.example.test", "1"}, "\"policy.example.test\" is not an IP address"},
    {"emptyAddress", {"add", "1", "", "1"}, "\"\" is not an IP address"},
    {"addressOutOfRange", {"add", "1", "192.0.2.256", "1"}, "\"192.0.2.256\" is not an IP address"},
    {"quotedAddress", {"add", "1", "1'; DELETE FROM component; --", "1"}, "is not an IP address"},
    {"missingPort", {"add", "1", "192.0.2.1"}, "PORT is required"},
    {"removeWithoutId", {"remove"}, "ID is required"},
};

class WrongServerOf : public testing::TestWithParam<WrongServer> {};

TEST_P(WrongServerOf, theProgramIsRefused) {
  std::vector<std::string> arguments = {"--home", "/nowhere/at/all", "servers"};
  arguments.insert(arguments.end(), GetParam().arguments.begin(), GetParam().arguments.end());
  const ProgramResult result = zarotest::zaroctl(arguments);
  EXPECT_EQ(result.status, 64);
  EXPECT_THAT(result.err, HasSubstr(GetParam().told));
  EXPECT_EQ(linesOf(result.err).size(), 1u);
}

INSTANTIATE_TEST_SUITE_P(, WrongServerOf, testing::ValuesIn(kWrongServers),
                         [](const auto& tested) { return std::string(tested.param.label); });

}  // namespace
