#include "store/FilterSettings.h"

#include <arpa/inet.h>
#include <strings.h>
#include <sys/un.h>

#include <algorithm>
#include <filesystem>
#include <iterator>

#include "ZaroRuntime/RuntimeError.h"
#include "console/Text.h"
#include "store/DefaultedSettings.h"

using zaroruntime::FailureKind;
using zaroruntime::RuntimeError;
using zaroruntime::Settings;

namespace {

// --- Why a text is no value; each answers an empty text when it is one ---

bool isPort(const std::string& text) {
  constexpr long long kHighestPort = 65535;
  const auto number = decimalNumber(text);
  return number && *number >= 1 && *number <= kHighestPort;
}

std::string judgeSocket(const std::string& text) {
  const std::string unixBegin = "unix:";
  const std::string inetBegin = "inet:";
  if (text.compare(0, unixBegin.size(), unixBegin) == 0) {
    const std::string path = text.substr(unixBegin.size());
    return path.size() >= sizeof(sockaddr_un::sun_path) ? "a path that is too long for a socket" : judgePath(path);
  }
  const std::size_t at = text.find('@');
  if (text.compare(0, inetBegin.size(), inetBegin) != 0 || at == std::string::npos) {
    return "neither unix:PATH nor inet:PORT@ADDRESS";
  }
  const std::string address = text.substr(at + 1);
  if (!isPort(text.substr(inetBegin.size(), at - inetBegin.size()))) {
    return "without a port from 1 to 65535";
  }
  return isNumericAddress(address, AF_INET) || isNumericAddress(address, AF_INET6) ? "" : "without an IP address";
}

std::string judgeOptionalSocket(const std::string& text) {
  return text.empty() ? "" : judgeSocket(text);
}

std::string judgeMode(const std::string& text) {
  const bool octal = !text.empty() && text.find_first_not_of("01234567") == std::string::npos;
  if (!octal || text.size() < 3 || text.size() > 4 || (text.size() == 4 && text[0] != '0')) {
    return "not a mode of three octal digits";
  }
  constexpr unsigned long kOwnersReadAndWrite = 0600;
  return (std::stoul(text, nullptr, 8) & kOwnersReadAndWrite) != kOwnersReadAndWrite
             ? "a mode that keeps the filter itself from its socket"
             : "";
}

std::string judgeGroup(const std::string& text) {
  return isPlainText(text) && text.find_first_of(" \t:/") == std::string::npos ? "" : "not the name of a group";
}

std::string judgeSeconds(const std::string& text) {
  constexpr long long kLongest = 3600;
  const auto number = decimalNumber(text);
  if (!number) {
    return "not a number";
  }
  return *number < 1 ? "below 1" : *number > kLongest ? "above " + std::to_string(kLongest) : "";
}

// Header fields that mean something else: the filter would take them out of every message.
constexpr const char* kTakenHeaders[] = {
    "Authentication-Results",
    "Bcc",
    "Cc",
    "Content-Transfer-Encoding",
    "Content-Type",
    "Date",
    "Delivered-To",
    "DKIM-Signature",
    "From",
    "In-Reply-To",
    "Message-ID",
    "MIME-Version",
    "Received",
    "References",
    "Reply-To",
    "Return-Path",
    "Sender",
    "Subject",
    "To",
};

std::string judgeHeader(const std::string& text) {
  constexpr std::size_t kLongest = 64;
  const bool isName = !text.empty() && std::all_of(text.begin(), text.end(), [](char letter) {
    return letter > ' ' && letter < 127 && letter != ':';
  });
  if (!isName || text.size() > kLongest) {
    return "not the name of a header field";
  }
  const bool taken = std::any_of(std::begin(kTakenHeaders), std::end(kTakenHeaders),
                                 [&](const char* name) { return strcasecmp(name, text.c_str()) == 0; });
  return taken ? "a header field with a meaning of its own" : "";
}

std::string judgeDelimiters(const std::string& text) {
  constexpr const char* kAllowed = "!#$%&*+-/=^_`{|}~.";
  constexpr std::size_t kMost = 8;
  return text.size() > kMost || text.find_first_not_of(kAllowed) != std::string::npos
             ? "not a few of the characters " + std::string(kAllowed)
             : "";
}

std::string judgeMetrics(const std::string& text) {
  if (text.empty()) {
    return "";
  }
  const std::size_t colon = text.rfind(':');
  if (colon == std::string::npos || !isPort(text.substr(colon + 1))) {
    return "not ADDRESS:PORT";
  }
  const std::string address = text.substr(0, colon);
  const bool loopback = address == "[::1]" || (isNumericAddress(address, AF_INET) && isLoopback(address));
  return loopback ? "" : "not an address of the loopback interface";
}

std::string judgeYesOrNo(const std::string& text) {
  return whyNoWord(SettingKind::YesOrNo, text);
}

std::string judgeFailure(const std::string& text) {
  return text == "tempfail" || text == "accept" ? "" : "neither tempfail nor accept";
}

std::string judgeSource(const std::string& text) {
  return text == "database" || text == "policy_server" ? "" : "neither database nor policy_server";
}

// One for each key of the section in kSettingTable; FilterSettingsTest compares them.
constexpr DefaultedSetting kFilterRows[] = {
    {"socket", "unix:run/zarofilterd.sock", judgeSocket},
    {"socket_mode", "0660", judgeMode},
    {"socket_group", "", judgeGroup},
    {"policy_socket", "", judgeOptionalSocket},
    {"on_failure", "tempfail", judgeFailure},
    {"shadow", "no", judgeYesOrNo},
    {"poll_secs", "5", judgeSeconds},
    {"header", "X-Zaro-Policy", judgeHeader},
    {"delimiter", "", judgeDelimiters},
    {"strip_batv", "yes", judgeYesOrNo},
    {"strip_srs", "no", judgeYesOrNo},
    {"exempt_authenticated", "yes", judgeYesOrNo},
    {"metrics", "", judgeMetrics},
    {"source", "database", judgeSource},
    {"state_dir", "state", judgePath},
};

constexpr DefaultedSettings kFilterSettings(kFilterSection, kFilterRows);

// --- Values as the filter uses them ---

class Values {
 public:
  Values(const zaroruntime::Installation& installation, const Settings& stored)
      : m_installation(installation), m_stored(stored) {}

  std::string text(const char* key) const { return kFilterSettings.text(m_stored, key); }

  bool isYes(const char* key) const { return strcasecmp(text(key).c_str(), "yes") == 0; }

  // A relative path lies in the installation.
  std::string path(const std::string& text) const { return text[0] == '/' ? text : m_installation.path(text); }

  std::string socket(const char* key) const {
    const std::string text = this->text(key);
    const std::size_t colon = text.find(':');
    if (text.empty()) {
      return "";
    }
    const std::string rest = text.substr(colon + 1);
    if (text.compare(0, colon, "unix") != 0) {
      return (rest.find(':') != std::string::npos ? "inet6:" : "inet:") + rest;
    }
    const std::string whole = path(rest);
    if (whole.size() >= sizeof(sockaddr_un::sun_path)) {
      throw RuntimeError(kFilterSettings.unusable(key, whole, "a path that is too long for a socket"),
                         FailureKind::Configuration);
    }
    return "unix:" + whole;
  }

 private:
  const zaroruntime::Installation& m_installation;
  const Settings& m_stored;
};

// Paths may differ in dots and slashes.
bool areOne(const std::string& socket, const std::string& other) {
  return std::filesystem::path(socket).lexically_normal() == std::filesystem::path(other).lexically_normal();
}

}  // namespace

std::string whyNoFilterValue(const std::string& key, const std::string& text) {
  return kFilterSettings.whyNoValue(key, text);
}

ReadSettings readAsFilter(const Settings& stored) {
  ReadSettings read{{}, 0, ""};
  kFilterSettings.read(stored, read);
  return read;
}

FilterSettings filterSettings(const zaroruntime::Installation& installation, const Settings& stored) {
  const Values values(installation, stored);
  FilterSettings settings;
  settings.socket = values.socket("socket");
  settings.socketMode = static_cast<mode_t>(std::stoul(values.text("socket_mode"), nullptr, 8));
  settings.socketGroup = values.text("socket_group");
  settings.policySocket = values.socket("policy_socket");
  if (areOne(settings.socket, settings.policySocket)) {
    throw RuntimeError(
        kFilterSettings.unusable("policy_socket", settings.policySocket, "the socket of the milter as well"),
        FailureKind::Configuration);
  }
  settings.acceptWithoutPolicy = values.text("on_failure") == "accept";
  settings.pollSeconds = static_cast<unsigned int>(*decimalNumber(values.text("poll_secs")));
  settings.decisions = {values.text("delimiter"),  values.isYes("strip_batv"),
                        values.isYes("strip_srs"), values.isYes("exempt_authenticated"),
                        values.isYes("shadow"),    values.text("header")};
  settings.metrics = values.text("metrics");
  settings.fromPolicyServer = values.text("source") == "policy_server";
  settings.stateDirectory = values.path(values.text("state_dir"));
  return settings;
}
