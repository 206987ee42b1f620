// Ini files: whatever can be read can be changed, written and read again.
#include <sys/mman.h>
#include <unistd.h>

#include "FuzzInput.h"
#include "ZaroRuntime/IniFile.h"
#include "ZaroRuntime/RuntimeError.h"
#include "common/UniqueFd.h"

using zaroruntime::IniFile;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const zaroruntime::UniqueFd file(memfd_create("ini", MFD_CLOEXEC));
  FUZZ_CHECK(file.isOpen() && write(file.get(), data, size) == static_cast<ssize_t>(size));
  try {
    IniFile ini("/proc/self/fd/" + std::to_string(file.get()));
    for (const auto& item : ini.items("s")) {
      FUZZ_CHECK(ini.get("s", item.first) == item.second);
    }
    ini.set("s", "k", "v");
    FUZZ_CHECK(ini.get("s", "k") == "v");
  } catch (const zaroruntime::RuntimeError&) {
  }
  return 0;
}
