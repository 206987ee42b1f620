// The terminal that standard output is.
#pragma once

#include <cstddef>

struct Terminal {
  std::size_t columns = 0;  // 0 where it does not say
  bool isBoldShown = false;
};

// Nothing bold where TERM is empty or "dumb", or NO_COLOR is set to any text.
Terminal terminalOfOutput();
