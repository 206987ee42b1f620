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
};

Ring& ring() {
  thread_local Ring texts;
  return texts;
}

}  // namespace

void keepFailure(const std::string& text) {
  Ring& texts = ring();
  texts.last = (texts.last + 1) % texts.texts.size();
  try {
    texts.texts[texts.last] = text;
  } catch (const std::bad_alloc&) {
    texts.texts[texts.last] = "out of memory";  // short enough to need none
  }
}

void throwText(const std::string& text) {
  keepFailure(text);
  throw ring().texts[ring().last].c_str();
}

std::string lastFailure() {
  return ring().texts[ring().last];
}

}  // namespace zaroruntime
