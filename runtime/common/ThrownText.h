// The platform reports failures by throwing `const char*`. The text must outlive the objects that die on the way to the
// handler, and a second failure that such an object's destructor meets, so it lives in a small ring of each thread.
#pragma once

#include <exception>
#include <string_view>

#include "ZaroRuntime/RuntimeError.h"

namespace zaroruntime {

// Keeps `text` for this thread's next few throws and throws it.
[[noreturn]] void throwText(std::string_view text, FailureKind kind = FailureKind::Other);

// Keeps `text` alike for an operation that fails with a code, so that `lastFailure` knows it.
void keepFailure(std::string_view text, FailureKind kind = FailureKind::Other);

// That of a RuntimeError; of any other exception, Other.
FailureKind kindOf(const std::exception& failure) noexcept;

// Runs `operation` and lets out nothing but thrown texts.
template <typename Operation>
auto throwingText(Operation operation) -> decltype(operation()) {
  try {
    return operation();
  } catch (const std::exception& failure) {
    throwText(failure.what(), kindOf(failure));
  }
}

}  // namespace zaroruntime
