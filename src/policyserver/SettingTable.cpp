#include "policyserver/SettingTable.h"

#include <algorithm>
#include <climits>
#include <cstddef>
#include <optional>

#include "GlobalSetting.h"
#include "PolicyLog.h"
#include "SettingsText.h"
#include "ZaroErrC.h"
#include "policyserver/LeadingNumber.h"
#include "util/LetterCase.h"

using Interface = ZaroPolicyServerInterface;
using NumberRule = ZaroPolicyServerInterface::NumberRule;

namespace ZARO {
namespace settings {

namespace {

// --- The table ---

enum class Kind { Number, YesOrNo, Protocol, Text };

// What is logged about a missing key, with the key and its section, and what is answered. Clients report some keys
// under the name of the server's operation, and one with the server's code; log watchers and callers know them so.
struct Missing {
  const char* message;
  unsigned int code;
};

constexpr const char* kClientsMessage =
    "ZaroPolicyServerInterface::getClientSettingsFromDatabase: Error retrieving %s from section %s.";
constexpr const char* kServersName =
    "ZaroPolicyServerInterface::getSettingsFromDatabase: Error retrieving %s from section %s.";
constexpr Missing kNotFound = {"[ERROR]Can not find setting '%s' in section [%s].", ZaroErrC::ServerSetting};
constexpr Missing kNotRetrieved = {kClientsMessage, ZaroErrC::ClientSetting};
constexpr Missing kNotRetrievedByServersName = {kServersName, ZaroErrC::ClientSetting};
constexpr Missing kNotRetrievedByServersCode = {kServersName, ZaroErrC::ServerSetting};

struct Setting {
  Reader reader;
  Section section;  // that it is read from
  Kind kind;
  NumberRule rule;                // its key; all else is about numbers
  unsigned int* Values::*number;  // where a number is; words are the only ones of their kind
  bool isWritten;
  const Missing& whenMissing;
};

// For the columns of rules.
constexpr std::size_t kAnyLength = static_cast<std::size_t>(-1);
constexpr std::nullopt_t kCallers = std::nullopt;

constexpr Setting number(Reader reader, Section section, NumberRule rule, unsigned int* Values::*value, bool isWritten,
                         const Missing& whenMissing) {
  return {reader, section, Kind::Number, rule, value, isWritten, whenMissing};
}

constexpr Setting word(Reader reader, Section section, const char* key, Kind kind, bool isWritten,
                       const Missing& whenMissing) {
  return {reader, section, kind, {key, false, kAnyLength, 0, 0, kCallers}, nullptr, isWritten, whenMissing};
}

constexpr Reader kServer = Reader::Server;
constexpr Reader kClient = Reader::Client;
constexpr Section kServers = Section::Server;
constexpr Section kClients = Section::Client;
constexpr Section kCache = Section::Cache;
constexpr bool kWritten = true;
constexpr bool kOnlyRead = false;

// Each reader's in the order in which it reads, which is also the order of writing.
// clang-format off
constexpr Setting kSettings[] = {
    //     reader   section    key                       port   longest     least greatest  fall-back  value                 written    if missing
    number(kServer, kServers, {"backlog",                false, 4,          0,    1000,     kCallers},      &Values::backlog,     kWritten,  kNotFound),
    word  (kServer, kServers,  "keep-alive",             Kind::YesOrNo,                                                           kWritten,  kNotFound),
    number(kServer, kServers, {"PolicyServerPort",       true,  kAnyLength, 0,    UINT_MAX, kCallers},      &Values::port,        kWritten,  kNotFound),
    word  (kServer, kServers,  "protocol",               Kind::Protocol,                                                          kWritten,  kNotFound),
    number(kServer, kServers, {"recv_timeout_secs",      false, 3,          0,    300,      kCallers},      &Values::recvTimeout, kOnlyRead, kNotFound),
    number(kServer, kServers, {"send_timeout_secs",      false, 3,          0,    300,      kCallers},      &Values::sendTimeout, kOnlyRead, kNotFound),
    number(kServer, kServers, {"threads",                false, 4,          1,    1000,     kCallers},      &Values::threads,     kWritten,  kNotFound),
    number(kServer, kServers, {"max_threads",            false, 4,          2,    1000,     kCallers},      &Values::maxThreads,  kWritten,  kNotFound),
    number(kServer, kCache,   {"ldap_cache_TTL_minutes", false, kAnyLength, 0,    UINT_MAX, 1440},          &Values::cacheTtl,    kWritten,  kNotFound),

    number(kClient, kServers, {"PolicyServerPort",       true,  kAnyLength, 0,    UINT_MAX, 5060},          &Values::port,        kOnlyRead, kNotRetrieved),
    word  (kClient, kServers,  "keep-alive",             Kind::YesOrNo,                                                           kOnlyRead, kNotRetrieved),
    word  (kClient, kServers,  "protocol",               Kind::Protocol,                                                          kOnlyRead, kNotRetrievedByServersName),
    word  (kClient, kClients,  "host",                   Kind::Text,                                                              kOnlyRead, kNotRetrieved),
    number(kClient, kClients, {"recv_timeout_secs",      false, 3,          0,    300,      0},             &Values::recvTimeout, kOnlyRead, kNotRetrievedByServersName),
    number(kClient, kClients, {"send_timeout_secs",      false, 3,          0,    300,      0},             &Values::sendTimeout, kOnlyRead, kNotRetrievedByServersCode),
};
// clang-format on

// The server's section, for all that is written and for all that a server reports: other programs look for the lifetime
// of the cache there too, though no server reads it there.
const char* shownSection(const Setting& setting) {
  return setting.section == Section::Client ? kClientSection : kServerSection;
}

const NumberRule* findRule(Reader reader, const std::string& key) {
  for (const Setting& setting : kSettings) {
    if (setting.reader == reader && setting.kind == Kind::Number && key == setting.rule.key) {
      return &setting.rule;
    }
  }
  return nullptr;
}

// --- Reading; a server reports every value ---

constexpr const char* kNothing = nullptr;

// What is logged about a number.
const char* complaint(Interface::Reading reading, const NumberRule& rule) {
  constexpr const char* kInvalid = "[ERROR]Value of '%s' is invalid, use default value %d.";
  switch (reading) {
    case Interface::AsStored:
      return kNothing;
    case Interface::TooLong:
      return "[ERROR]Size of '%s' is too long, use default value %d.";
    case Interface::NotANumber:
      if (rule.isPort) {
        return "[ERROR]Port value '%s' is invalid, use default value '%d'.";
      }
      return rule.fallBack ? kInvalid : kNothing;
    default:
      return kInvalid;
  }
}

void reportText(const Setting& setting, const std::string& text) {
  PolicyLog::log(LogLevel::Error, "Read setting '%s' in section [%s], value is '%s'.", setting.rule.key,
                 shownSection(setting), text.c_str());
}

void reportNumber(const Setting& setting, const std::string& text, Interface::Reading reading, unsigned int value) {
  const char* message = complaint(reading, setting.rule);
  if (message != kNothing) {
    PolicyLog::log(LogLevel::Error, message, text.c_str(), static_cast<int>(value));
  }
}

void reportProtocol(Interface::Protocol protocol) {
  PolicyLog::log(LogLevel::Error, "Policy server will use protocal '%s'.",  // spelt as log watchers know it
                 protocol == Interface::HTTPS ? "https" : "http");
}

void readSetting(const Setting& setting, const std::string& text, const Values& values) {
  const bool reports = setting.reader == Reader::Server;
  if (reports) {
    reportText(setting, text);
  }
  switch (setting.kind) {
    case Kind::Number: {
      unsigned int& value = *(values.*setting.number);
      const Interface::Reading reading = Interface::readNumber(setting.rule, text, value);
      if (reports) {
        reportNumber(setting, text, reading, value);
      }
      break;
    }
    case Kind::YesOrNo:
      *values.keepAlive = equalsIgnoringAsciiCase(text, "yes");
      break;
    case Kind::Protocol:
      *values.protocol = equalsIgnoringAsciiCase(text, "https") ? Interface::HTTPS : Interface::HTTP;
      if (reports) {
        reportProtocol(*values.protocol);
      }
      break;
    case Kind::Text:
      *values.host = text;
      break;
  }
}

// --- Writing ---

std::string textOf(const Setting& setting, const Values& values) {
  switch (setting.kind) {
    case Kind::Number:
      return std::to_string(static_cast<int>(*(values.*setting.number)));
    case Kind::YesOrNo:
      return *values.keepAlive ? "yes" : "no";
    case Kind::Protocol:
      return *values.protocol == Interface::HTTPS ? "HTTPS" : "HTTP";
    case Kind::Text:
      break;
  }
  return *values.host;
}

}  // namespace

unsigned int readSection(Reader reader, Section section, const Items& items, const Values& values) {
  for (const Setting& setting : kSettings) {
    if (setting.reader != reader || setting.section != section) {
      continue;
    }
    const auto item = items.find(setting.rule.key);
    if (item == items.end()) {
      PolicyLog::log(LogLevel::Error, setting.whenMissing.message, setting.rule.key, shownSection(setting));
      return setting.whenMissing.code;
    }
    readSetting(setting, item->second, values);
  }
  return ZaroErrC::Success;
}

unsigned int writeSettings(const Values& values) {
  GlobalSettingIF store;
  for (const Setting& setting : kSettings) {
    if (setting.isWritten &&
        store.setItem(setting.rule.key, textOf(setting, values).c_str(), shownSection(setting), kFile) != 0) {
      return ZaroErrC::SettingNotWritten;
    }
  }
  return ZaroErrC::Success;
}

}  // namespace settings
}  // namespace ZARO

using namespace ZARO::settings;

const NumberRule* ZaroPolicyServerInterface::findServerRule(const std::string& key) {
  return findRule(Reader::Server, key);
}

const NumberRule* ZaroPolicyServerInterface::findClientRule(const std::string& key) {
  return findRule(Reader::Client, key);
}

ZaroPolicyServerInterface::Reading ZaroPolicyServerInterface::readNumber(const NumberRule& rule,
                                                                         const std::string& text, unsigned int& value) {
  const bool isNumber = rule.isPort ? isValidPort(text.c_str()) : isNum(text.c_str());
  if (!isNumber) {
    value = rule.fallBack.value_or(value);
    return NotANumber;
  }
  if (text.size() > rule.longest) {
    value = rule.greatest;
    return TooLong;
  }
  const unsigned int number = leadingNumber<unsigned int>(text.c_str());
  value = std::clamp(number, rule.least, rule.greatest);
  if (value == number) {
    return AsStored;
  }
  return number < rule.least ? TooLow : TooHigh;
}
