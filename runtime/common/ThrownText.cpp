#include "common/ThrownText.h"

#include <array>
#include <cstddef>
#include <new>

#include "ZaroRuntime/LastFailure.h"

namespace zaroruntime {

namespace {

struct Ring {
  std::array<std::string, 8> texts;
  std::size_t last = 0;
  FailureKind kind = FailureKind::None;  // of the last
  unsigned long count = 0;               // of all texts kept so far
};

Ring& ring() {
  thread_local Ring texts;
  return texts;
}

}  // namespace

void keepFailure(std::string_view text, FailureKind kind) {
  Ring& texts = ring();
  texts.kind = kind;
  ++texts.count;
  texts.last = (texts.last + 1) % texts.texts.size();
  try {
    texts.texts[texts.last] = text;
  } catch (const std::bad_alloc&) {
    texts.texts[texts.last] = "out of memory";  // short enough to need none
  }
}

void throwText(std::string_view text, FailureKind kind) {
  keepFailure(text, kind);
  throw ring().texts[ring().last].c_str();
}

FailureKind kindOf(const std::exception& failure) noexcept {
  const auto* const known = dynamic_cast<const RuntimeError*>(&failure);
  return known != nullptr ? known->kind() : FailureKind::Other;
}

std::string lastFailure() {
  return ring().kind == FailureKind::None ? std::string() : ring().texts[ring().last];
}

FailureKind lastFailureKind() {
  return ring().kind;
}

void forgetFailures() {
  ring().kind = FailureKind::None;
}

unsigned long failureCount() {
  return ring().count;
}

}  // namespace zaroruntime
