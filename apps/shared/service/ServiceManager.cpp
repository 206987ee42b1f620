#include "service/ServiceManager.h"

#include <systemd/sd-daemon.h>

namespace {

// Without a service manager this does nothing, and that is no failure.
void tell(const std::string& state) {
  constexpr int kKeepEnvironment = 0;
  static_cast<void>(sd_notify(kKeepEnvironment, state.c_str()));
}

}  // namespace

void tellReady(const std::string& status) {
  tell("READY=1\nSTATUS=" + status);
}

void tellReloading() {
  tell("RELOADING=1\nSTATUS=Reloading the policy");
}

void tellStopping(const std::string& status) {
  tell("STOPPING=1\nSTATUS=" + status);
}
