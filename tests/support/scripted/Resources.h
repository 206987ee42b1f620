// The display strings behind ZARO::KxResbundle.
#pragma once

#include <map>
#include <string>

namespace scripted {

// No string exists at first; every bundle reads the same ones, whatever file and section it opened (see the calls).
// For one thread.
struct Resources {
  std::string fileName = "display.res";  // GetResourceFileName
  std::map<std::string, std::string> texts;
};

}  // namespace scripted
