#include "scripted/Resources.h"

#include "KxResbundle.h"
#include "scripted/Platform.h"

using scripted::Point;
using scripted::quoted;

struct ZARO::KxResbundle::Impl {};

ZARO::KxResbundle::KxResbundle() : m_impl(nullptr) {
  scripted::platform().calls.add("KxResbundle");
}

ZARO::KxResbundle::~KxResbundle() {
  scripted::platform().calls.addDestructor("KxResbundle");
  delete m_impl;
}

const char* ZARO::KxResbundle::GetResourceFileName() {
  return scripted::platform().resources.fileName.c_str();
}

void ZARO::KxResbundle::_init(const char* fileName, const char* section, const char* locale) {
  scripted::platform().calls.add("KxResbundle._init", {quoted(fileName), quoted(section), quoted(locale)});
  scripted::platform().faults.pass(Point::ResourceOpen);
}

bool ZARO::KxResbundle::getString(const char* key, std::string& value) {
  scripted::platform().calls.add("KxResbundle.getString", {quoted(key)});
  scripted::platform().faults.pass(Point::ResourceRead);
  const auto& texts = scripted::platform().resources.texts;
  const auto found = texts.find(key);
  if (found == texts.end()) {
    return false;
  }
  value = found->second;
  return true;
}
