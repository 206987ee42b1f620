#include "console/Terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

namespace {

std::string variable(const char* name) {
  const char* text = std::getenv(name);
  return text != nullptr ? text : "";
}

}  // namespace

Terminal terminalOfOutput() {
  Terminal terminal;
  winsize size = {};
  if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0) {
    terminal.columns = size.ws_col;
  }
  const std::string kind = variable("TERM");
  terminal.isBoldShown = !kind.empty() && kind != "dumb" && variable("NO_COLOR").empty();
  return terminal;
}
