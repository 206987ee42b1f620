// The settings that programs show and set. The library reads and writes them by a table of its own, which is not
// exported; tests/unit/tables compares the two, config/zaro.ini and the manual.
#pragma once

constexpr const char* kServerSection = "policy_server";
constexpr const char* kClientSection = "policy_client";
constexpr const char* kLdapSection = "LDAP";
constexpr const char* kFilterSection = "mail_filter";
constexpr const char* kCacheTtl = "ldap_cache_TTL_minutes";

enum class SettingSection {
  Server,
  Client,
  Ldap,
  Cache,  // has the name that the LDAP settings choose
  Filter,
};

enum class SettingKind {
  ServerNumber,  // by the library's rules for servers, and for clients
  ClientNumber,
  YesOrNo,
  Protocol,
  Hosts,
  LdapNumber,
  ClientValue,  // by the rules in ClientSettings.cpp
  FilterValue,  // by the rules in FilterSettings.cpp
  ServerValue,  // by the rules in ServerSettings.cpp
};

enum class SettingReader {
  Server,  // by the library, as the next two
  Client,
  Both,
  Filter,
  ServerProgram,
  ClientProgram,
};

struct KnownSetting {
  SettingSection section;
  const char* key;
  SettingKind kind;
  SettingReader reader;
  bool libraryWrites;   // together with all others that it writes
  const char* initial;  // what a new installation has for all hosts; null for nothing
};

// In the order in which `settings set` shows them.
inline constexpr KnownSetting kSettingTable[] = {
    {SettingSection::Server, "backlog", SettingKind::ServerNumber, SettingReader::Server, true, "100"},
    {SettingSection::Server, "keep-alive", SettingKind::YesOrNo, SettingReader::Both, true, "yes"},
    {SettingSection::Server, "PolicyServerPort", SettingKind::ServerNumber, SettingReader::Both, true, "5060"},
    {SettingSection::Server, "protocol", SettingKind::Protocol, SettingReader::Both, true, "HTTP"},
    {SettingSection::Server, "threads", SettingKind::ServerNumber, SettingReader::Server, true, "16"},
    {SettingSection::Server, "max_threads", SettingKind::ServerNumber, SettingReader::Server, true, "64"},
    {SettingSection::Cache, "ldap_cache_TTL_minutes", SettingKind::ServerNumber, SettingReader::Server, true, "1440"},
    {SettingSection::Server, "recv_timeout_secs", SettingKind::ServerNumber, SettingReader::Server, false, "60"},
    {SettingSection::Server, "send_timeout_secs", SettingKind::ServerNumber, SettingReader::Server, false, "60"},
    {SettingSection::Server, "address", SettingKind::ServerValue, SettingReader::ServerProgram, false, nullptr},
    {SettingSection::Server, "certificate", SettingKind::ServerValue, SettingReader::ServerProgram, false, nullptr},
    {SettingSection::Server, "private_key", SettingKind::ServerValue, SettingReader::ServerProgram, false, nullptr},
    {SettingSection::Server, "client_ca", SettingKind::ServerValue, SettingReader::ServerProgram, false, nullptr},
    {SettingSection::Server, "token_file", SettingKind::ServerValue, SettingReader::ServerProgram, false, nullptr},
    {SettingSection::Client, "host", SettingKind::Hosts, SettingReader::Client, false, "127.0.0.1"},
    {SettingSection::Client, "recv_timeout_secs", SettingKind::ClientNumber, SettingReader::Client, false, "60"},
    {SettingSection::Client, "send_timeout_secs", SettingKind::ClientNumber, SettingReader::Client, false, "60"},
    {SettingSection::Client, "ca", SettingKind::ClientValue, SettingReader::ClientProgram, false, nullptr},
    {SettingSection::Client, "certificate", SettingKind::ClientValue, SettingReader::ClientProgram, false, nullptr},
    {SettingSection::Client, "private_key", SettingKind::ClientValue, SettingReader::ClientProgram, false, nullptr},
    {SettingSection::Client, "token_file", SettingKind::ClientValue, SettingReader::ClientProgram, false, nullptr},
    {SettingSection::Ldap, "enabled_server", SettingKind::LdapNumber, SettingReader::Server, false, "0"},
    {SettingSection::Ldap, "access_type", SettingKind::LdapNumber, SettingReader::Server, false, "0"},
    {SettingSection::Filter, "socket", SettingKind::FilterValue, SettingReader::Filter, false, nullptr},
    {SettingSection::Filter, "socket_mode", SettingKind::FilterValue, SettingReader::Filter, false, nullptr},
    {SettingSection::Filter, "socket_group", SettingKind::FilterValue, SettingReader::Filter, false, nullptr},
    {SettingSection::Filter, "policy_socket", SettingKind::FilterValue, SettingReader::Filter, false, nullptr},
    {SettingSection::Filter, "on_failure", SettingKind::FilterValue, SettingReader::Filter, false, nullptr},
    {SettingSection::Filter, "shadow", SettingKind::FilterValue, SettingReader::Filter, false, nullptr},
    {SettingSection::Filter, "poll_secs", SettingKind::FilterValue, SettingReader::Filter, false, nullptr},
    {SettingSection::Filter, "header", SettingKind::FilterValue, SettingReader::Filter, false, nullptr},
    {SettingSection::Filter, "delimiter", SettingKind::FilterValue, SettingReader::Filter, false, nullptr},
    {SettingSection::Filter, "strip_batv", SettingKind::FilterValue, SettingReader::Filter, false, nullptr},
    {SettingSection::Filter, "strip_srs", SettingKind::FilterValue, SettingReader::Filter, false, nullptr},
    {SettingSection::Filter, "exempt_authenticated", SettingKind::FilterValue, SettingReader::Filter, false, nullptr},
    {SettingSection::Filter, "metrics", SettingKind::FilterValue, SettingReader::Filter, false, nullptr},
    {SettingSection::Filter, "source", SettingKind::FilterValue, SettingReader::Filter, false, nullptr},
    {SettingSection::Filter, "state_dir", SettingKind::FilterValue, SettingReader::Filter, false, nullptr},
};

// Null for the section of the LDAP cache.
constexpr const char* nameOf(SettingSection section) {
  switch (section) {
    case SettingSection::Server:
      return kServerSection;
    case SettingSection::Client:
      return kClientSection;
    case SettingSection::Ldap:
      return kLdapSection;
    case SettingSection::Filter:
      return kFilterSection;
    case SettingSection::Cache:
      break;
  }
  return nullptr;
}

constexpr bool isReadBy(const KnownSetting& setting, SettingReader reader) {
  const bool byBoth = reader == SettingReader::Server || reader == SettingReader::Client;
  return setting.reader == reader || (setting.reader == SettingReader::Both && byBoth);
}
