// The settings that policy servers and their clients read and write, by one table of rows: where a setting stands, what
// kind of value it has, and the rule by which it is read.
#pragma once

#include <map>
#include <string>

#include "ZaroPolicyServerInterface.h"

namespace ZARO {
namespace settings {

constexpr const char* kFile = "zaro.ini";
constexpr const char* kServerSection = "policy_server";
constexpr const char* kClientSection = "policy_client";

enum class Reader { Server, Client };
enum class Section { Server, Client, Cache };  // the last one has the name that `getCacheSection` answers

// The texts of a section, by key.
using Items = std::map<std::string, std::string>;

// Where the caller has the values; null for those that it neither reads nor writes.
struct Values {
  unsigned int* backlog = nullptr;
  bool* keepAlive = nullptr;
  unsigned int* port = nullptr;
  ZaroPolicyServerInterface::Protocol* protocol = nullptr;
  unsigned int* recvTimeout = nullptr;
  unsigned int* sendTimeout = nullptr;
  unsigned int* threads = nullptr;
  unsigned int* maxThreads = nullptr;
  unsigned int* cacheTtl = nullptr;
  std::string* host = nullptr;
};

// Reads a reader's settings of one section from the section's items, one after the other: what was read before a
// missing key counts. Answers 0, or the code of the missing key; the key is logged.
unsigned int readSection(Reader reader, Section section, const Items& items, const Values& values);

// Writes what a server has written, up to the first failure. Answers 0 or 1610.
unsigned int writeSettings(const Values& values);

}  // namespace settings
}  // namespace ZARO
