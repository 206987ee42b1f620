// settings server, settings client, settings filter
#include "commands/CommandTree.h"
#include "commands/Commands.h"
#include "console/Text.h"
#include "store/FilterSettings.h"
#include "store/PolicySettings.h"

namespace {

Json textOrNull(const std::string& text) {
  return text.empty() ? Json(nullptr) : Json(text);
}

// Where the value comes from: a layer, or the reader's own default.
Json sourceOf(const ReadSetting& setting) {
  if (setting.stored != nullptr) {
    return nameOf(setting.stored->layer);
  }
  return setting.value.is_null() ? Json(nullptr) : Json("default");
}

// Why the value is not the stored one, and what the file stands above.
std::string noteOn(const ReadSetting& setting) {
  std::string note = setting.note;
  if (setting.stored != nullptr && setting.stored->below) {
    note.append(note.empty() ? "" : "; ").append("the database holds ").append(quoted(*setting.stored->below));
  }
  return note;
}

ExitCode show(Output& out, const char* reader, ReadSettings (*read)(const zaroruntime::Settings&)) {
  const zaroruntime::Settings stored = zaroruntime::readSettings(zaroruntime::Installation::fromEnvironment());
  tellOfDatabase(stored);
  const ReadSettings found = read(stored);
  Json rows = Json::array();
  for (const ReadSetting& setting : found.settings) {
    const bool there = setting.stored != nullptr;
    rows.push_back({{"section", setting.section},
                    {"key", setting.key},
                    {"value", setting.value},
                    {"stored", there ? Json(setting.stored->value) : Json(nullptr)},
                    {"from", sourceOf(setting)},
                    {"note", textOrNull(noteOn(setting))}});
  }
  out.rows({{"section", "SECTION"},
            {"key", "KEY"},
            {"value", "VALUE"},
            {"stored", "STORED"},
            {"from", "FROM"},
            {"note", "NOTE", Output::Width::Whole}},
           rows);
  if (!found.isComplete()) {
    diagnose(whyUnreadable(reader, found));
    return ExitCode::Configuration;
  }
  return ExitCode::Found;
}

}  // namespace

void addSettingsServer(CommandTree& tree) {
  tree.add("settings server", "Show the settings that a policy server on this host reads",
           {"zaroctl settings server", "zaroctl settings server --json"},
           [](Output& out) { return show(out, "a policy server", readAsServer); });
}

void addSettingsClient(CommandTree& tree) {
  tree.add("settings client", "Show the settings that a client of a policy server on this host reads",
           {"zaroctl settings client", "zaroctl settings client --json"},
           [](Output& out) { return show(out, "a client", readAsClient); });
}

void addSettingsFilter(CommandTree& tree) {
  tree.add("settings filter", "Show the settings that the mail filter on this host reads",
           {"zaroctl settings filter", "zaroctl settings filter --json"},
           [](Output& out) { return show(out, "the mail filter", readAsFilter); });
}
