// Policy delegation over a socket: which connections stay.
#include "delegation/PolicyListener.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <string>

#include "filter/FilterParts.h"
#include "support/TemporaryDirectory.h"

namespace {

using zarotest::FilterParts;

// A mail server's connection.
class Client {
 public:
  explicit Client(const std::string& path) : m_descriptor(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    EXPECT_EQ(connect(m_descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  }
  ~Client() { close(m_descriptor); }
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  void say(const std::string& text) const {
    EXPECT_EQ(send(m_descriptor, text.data(), text.size(), MSG_NOSIGNAL), static_cast<ssize_t>(text.size()));
  }
  // What comes next; empty when the connection was ended.
  std::string answer() const {
    std::array<char, 256> buffer = {};
    const ssize_t count = recv(m_descriptor, buffer.data(), buffer.size(), 0);
    return count > 0 ? std::string(buffer.data(), static_cast<std::size_t>(count)) : "";
  }

 private:
  int m_descriptor;
};

class PolicyListenerTest : public testing::Test {
 protected:
  PolicyListenerTest() : m_path(m_directory.path("policy.sock")) {
    m_parts.settings.policySocket = "unix:" + m_path;
    m_parts.settings.socketMode = 0600;
    m_parts.settings.acceptWithoutPolicy = true;
  }

  const std::string m_request = "request=smtpd_access_policy\nprotocol_state=RCPT\nrecipient=a@b.test\n\n";
  const std::string m_nothing = "action=DUNNO\n\n";
  zarotest::TemporaryDirectory m_directory;
  std::string m_path;
  FilterParts m_parts;
};

TEST_F(PolicyListenerTest, answersAllRequestsOfAConnection) {
  const PolicyListener listener(m_parts.desk);
  const Client client(m_path);
  for (int i = 0; i != 3; ++i) {
    client.say(m_request);
    EXPECT_EQ(client.answer(), m_nothing);
  }
  client.say(std::string(PolicyRequest::kLongest + 1, 'x'));
  EXPECT_EQ(client.answer(), "");
}

TEST_F(PolicyListenerTest, endsConnectionsThatAskNothing) {
  const PolicyListener listener(m_parts.desk, {1000, std::chrono::milliseconds(50)});
  const Client silent(m_path);
  const Client halfWay(m_path);
  halfWay.say("request=smtpd_access_policy\n");
  EXPECT_EQ(silent.answer(), "");
  EXPECT_EQ(halfWay.answer(), "");
}

TEST_F(PolicyListenerTest, givesTheIdlestPlaceToOneMoreConnection) {
  const PolicyListener listener(m_parts.desk, {2, std::chrono::hours(1)});
  const Client busy(m_path);
  const Client idle(m_path);
  idle.say(m_request);
  EXPECT_EQ(idle.answer(), m_nothing);
  busy.say(m_request);
  EXPECT_EQ(busy.answer(), m_nothing);
  const Client third(m_path);
  third.say(m_request);
  EXPECT_EQ(third.answer(), m_nothing);
  EXPECT_EQ(idle.answer(), "");
  busy.say(m_request);
  EXPECT_EQ(busy.answer(), m_nothing);
}

}  // namespace
