// What services keep on disk for a start without their source: the last good policy and the last good settings. A file
// that is not whole is told, and counts for nothing.
#include <optional>
#include <string>

#include "FuzzInput.h"
#include "FuzzInstallation.h"
#include "QuietErrors.h"
#include "ZaroRuntime/RuntimeError.h"
#include "policy/LastGoodPolicy.h"
#include "service/LastGoodSettings.h"
#include "store/SettingTable.h"
#include "support/SnapshotText.h"

namespace {

using zaroruntime::SettingLayer;

std::optional<MailPolicy> loaded(const LastGoodPolicy& kept) {
  try {
    return kept.load();
  } catch (const zaroruntime::RuntimeError& refusal) {
    FUZZ_CHECK(std::string(refusal.what()).find("policy.snapshot") != std::string::npos);
    return std::nullopt;
  }
}

void checkPolicy(const FuzzInstallation& installation, const std::string& text) {
  const LastGoodPolicy kept(installation.path("state"));
  kept.saveText(text);
  FUZZ_CHECK(kept.text() == text);
  if (const auto policy = loaded(kept)) {
    kept.save(*policy);
    const auto again = loaded(kept);
    FUZZ_CHECK(again && again->version == policy->version);
    FUZZ_CHECK(zarotest::snapshotBody(zarotest::snapshotText(*again)) ==
               zarotest::snapshotBody(zarotest::snapshotText(*policy)));
  }
}

void checkSettings(const FuzzInstallation& installation, const std::string& text) {
  static const ServiceLog log(ServiceLog::Target::StandardError);
  installation.write("state/settings.json", text);
  installation.write("config/zaro.ini", "[mail_filter]\nshadow=yes\n");
  const zaroruntime::Installation here(installation.home());
  const auto stored = settingsOrLastGood(here, installation.path("state/settings.json"), log);
  // The host's own setting counts, whatever was kept.
  const zaroruntime::Setting* own = stored.find(kFilterSection, "shadow");
  FUZZ_CHECK(own != nullptr && own->value == "yes" && own->layer == SettingLayer::File);
  FUZZ_CHECK(!stored.databaseFailure.empty());
}

}  // namespace

// The first byte says which of the two, and whether the text gets the tail that a snapshot should have.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const FuzzInstallation installation;
  if (size == 0) {
    return 0;
  }
  const QuietErrors quiet;
  const std::string text = textOf(data + 1, size - 1);
  if (data[0] % 3 == 0) {
    checkSettings(installation, text);
  } else {
    checkPolicy(installation, data[0] % 3 == 1 ? text : zarotest::withSnapshotTail(text));
  }
  return 0;
}
