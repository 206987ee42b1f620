// The policy that policy servers hand out. A server holds the question until there is something new, so that a change
// counts at once.
#pragma once

#include <functional>
#include <map>
#include <string>

#include "loading/FilterSource.h"
#include "policy/PolicySource.h"
#include "policyclient/PolicyClient.h"

class ServerSource : public PolicySource {
 public:
  // Throws RuntimeError.
  ServerSource(ClientSettings settings, const SourceSurroundings& surroundings);

  std::optional<ArrivingPolicy> loadUnless(std::optional<std::uint64_t> known) override;
  void leaveOutPauses() override { m_isUrgent = true; }
  void interrupt() override { m_client.interrupt(); }
  std::optional<std::chrono::milliseconds> pause(bool hasFailed) const override;

 private:
  PolicyClientSurroundings _surroundingsOfClient();
  void _tellOfOthers();

  SourceSurroundings m_surroundings;
  PolicyClient m_client;
  bool m_isUrgent = false;                           // the next load
  std::optional<std::uint64_t> m_version;            // what came last; to begin with, what is there already
  std::string m_etag;                                // of what came last
  std::optional<std::chrono::milliseconds> m_pause;  // before the next question, after one that went well
  std::map<std::string, std::string> m_failures;     // of servers, until they answer
  std::map<std::string, std::string> m_told;
};
