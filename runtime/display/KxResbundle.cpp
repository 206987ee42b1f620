#include "KxResbundle.h"

#include <memory>

#include "ZaroRuntime/RuntimeError.h"
#include "common/ThrownText.h"
#include "display/DisplayStrings.h"

namespace ZARO {

namespace {

std::string& fileNameOfThread() {
  thread_local std::string fileName;
  return fileName;
}

}  // namespace

struct KxResbundle::Impl {
  std::unique_ptr<zaroruntime::DisplayStrings> strings;  // null until opened
};

KxResbundle::KxResbundle() : m_impl(new Impl) {}

KxResbundle::~KxResbundle() {
  delete m_impl;
}

// Throws a text when ZARO_HOME is not set. Valid on this thread until the next call.
const char* KxResbundle::GetResourceFileName() {
  std::string& path = fileNameOfThread();
  zaroruntime::throwingText([&] { path = zaroruntime::displayBaseFile(zaroruntime::Installation::fromEnvironment()); });
  return path.c_str();
}

// `locale` is a language or a locale; null leaves the choice to the installation.
void KxResbundle::_init(const char* fileName, const char* section, const char* locale) {
  zaroruntime::throwingText([&] {
    if (fileName == nullptr || section == nullptr) {
      throw zaroruntime::RuntimeError("KxResbundle: a resource file and a section must be named");
    }
    m_impl->strings = std::make_unique<zaroruntime::DisplayStrings>(fileName, section, locale != nullptr ? locale : "");
  });
}

bool KxResbundle::getString(const char* key, std::string& value) {
  if (m_impl->strings == nullptr || key == nullptr) {
    return false;
  }
  return zaroruntime::throwingText([&] {
    const auto text = m_impl->strings->get(key);
    if (text) {
      value = *text;
    }
    return text.has_value();
  });
}

}  // namespace ZARO
