// The scripted platform notes every call and every line of the log. An input that leaves them there takes memory from
// all that follow, and looks like a leak.
#pragma once

#include "scripted/Platform.h"

// Forgets them when an input is done.
class ForgottenCalls {
 public:
  ForgottenCalls() = default;
  ~ForgottenCalls() {
    scripted::platform().calls.clear();
    scripted::platform().log.clear();
  }
  ForgottenCalls(const ForgottenCalls&) = delete;
  ForgottenCalls& operator=(const ForgottenCalls&) = delete;
};
