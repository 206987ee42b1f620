// The policy server as its clients and itself see it: settings that cannot be absurd, and the list of servers.
//
// 1. Settings are texts in sections of the gateway's settings store. What is read is judged here, so that no server
//    starts with a backlog, a thread count or a time-out that no machine could bear.
// 2. What is written and what is read differ on purpose: time-outs are read only, and the lifetime of the LDAP cache is
//    written to "policy_server" but read from the section that `getCacheSection` names.
// 3. There is no state here. The settings store decides which threads may call; any may ask for the list of servers.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "ZaroPolicyExport.h"

// A registered policy server.
struct PolicyServerInfo {
  int scannerId = 0;
  std::string ipAddr;  // as stored
  int agentPort = 0;
};

class ZARO_POLICY_EXPORT ZaroPolicyServerInterface {
 public:
  enum Protocol : int { HTTP = 0, HTTPS = 1 };

  // How a stored number is read.
  struct NumberRule {
    const char* key;
    bool isPort;                           // a port between 1 and 65535; else any text of digits is a number
    std::size_t longest;                   // characters; a longer number reads as `greatest`
    unsigned int least;                    // a lower number reads as this one
    unsigned int greatest;                 // a higher number reads as this one
    std::optional<unsigned int> fallBack;  // what no number reads as; nothing: what the caller had
  };

  // What became of a stored text.
  enum Reading : int { AsStored = 0, TooLong, TooLow, TooHigh, NotANumber };

  // Reads the settings of a server. The caller's values are its defaults: they stay where a stored text is not a number
  // (the lifetime of the cache excepted, which then is 1440). Everything is logged at level 1, value by value.
  //   backlog             connections that wait, at most 1000
  //   recvTimeoutSecs, sendTimeoutSecs   seconds, at most 300
  //   threads, maxThreads   at least 1 and 2, at most 1000
  //   cacheTTLMins        minutes, without an upper bound
  //   bPrioritizeINI      must be true
  // Returns 0, or
  //   1609  a key is missing (those before it are set then), a section cannot be read, the store in memory is not
  //         loaded, or `bPrioritizeINI` is false
  static unsigned int getSettingsFromDatabase(unsigned int& backlog, bool& bKeepAlive, unsigned int& port,
                                              Protocol& protocol, unsigned int& recvTimeoutSecs,
                                              unsigned int& sendTimeoutSecs, unsigned int& threads,
                                              unsigned int& maxThreads, unsigned int& cacheTTLMins, bool bPrioritizeINI);

  // Reads the settings of a client. Keys that are missing in "policy_client" are taken from "policy_server", if it has
  // them. A port that is none reads as 5060, a time-out that is no number as 0; nothing is logged about values.
  //   host    as stored
  //   recvTimeoutSecs, sendTimeoutSecs   seconds, at most 300
  //   bInMemory   whether the store in memory is asked; else "zaro.ini" is read anew
  // Returns 0, or (outputs before it are set then)
  //   1608  a key is missing, a section cannot be read, or the store in memory is not loaded
  //   1609  "send_timeout_secs" is missing
  static unsigned int getClientSettingsFromDatabase(std::string& host, unsigned int& port, bool& bKeepAlive,
                                                    Protocol& protocol, unsigned int& recvTimeoutSecs,
                                                    unsigned int& sendTimeoutSecs, bool bInMemory);

  // Writes seven settings to section "policy_server" of "zaro.ini", one after the other. Nothing is judged: numbers
  // above 2147483647 come out negative, any protocol but HTTPS as HTTP.
  // Returns 0, or
  //   1610  one could not be written; those before it are
  static unsigned int setSettingsInDatabase(unsigned int backlog, bool bKeepAlive, unsigned int port, Protocol protocol,
                                            unsigned int threads, unsigned int maxThreads, unsigned int cacheTTLMins);

  // Lists the registered policy servers, over a database connection of its own: `RdbmsInterface::Init` must have run.
  // Inside a transaction of the caller's, what that has not committed is not seen, and it is not waited for.
  //   servers   appended to
  // Returns 0, also without a connection, or (servers before it are in the list then)
  //   1002  a column is NULL
  //   4002  the database layer threw; logged at level 1
  //   4005  there is no directory of statement files
  static int getPolicyServerInfo(std::vector<PolicyServerInfo>& servers);

  // The rule by which a server or a client reads a key; null when it is not read as a number.
  static const NumberRule* findServerRule(const std::string& key);
  static const NumberRule* findClientRule(const std::string& key);
  // Reads a stored text by a rule. `value` stays as it was when the answer is NotANumber and there is no fall-back.
  static Reading readNumber(const NumberRule& rule, const std::string& text, unsigned int& value);

  // The section that the lifetime of the LDAP cache is read from.
  //   accessType, enabledServer   the items of these names in section "LDAP"; null: could not be read
  static std::string getCacheSection(const std::string* accessType, const std::string* enabledServer);
};
