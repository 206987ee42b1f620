#include "ZaroRuntime/IniFile.h"

#define SI_IMPLEMENTATION
#define SI_NO_CONVERSION
// The library is not written for our warning options.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wconversion"
#pragma GCC diagnostic ignored "-Wshadow"
#include <SimpleIni.h>
#pragma GCC diagnostic pop

#include <new>

#include "ZaroRuntime/RuntimeError.h"
#include "common/FileText.h"
#include "config/IniText.h"

namespace zaroruntime {

namespace {

constexpr std::size_t kLargestIniFile = 16 * 1024 * 1024;

bool isBlank(char sign) {
  return sign == ' ' || sign == '\t';
}

void refuseWhatALineCannotHold(const std::string& text, const std::string& what) {
  if (text.find_first_of(std::string("\r\n\0", 3)) != std::string::npos) {
    throw RuntimeError(what + ": line ends and NUL cannot be stored in an ini file", FailureKind::Data);
  }
  if (!text.empty() && (isBlank(text.front()) || isBlank(text.back()))) {
    throw RuntimeError(what + ": blanks at the beginning or the end cannot be stored in an ini file", FailureKind::Data);
  }
}

void refuseWhatIsNoName(const std::string& name, const char* reservedInside, const char* reservedFirst,
                        const std::string& what) {
  refuseWhatALineCannotHold(name, what);
  if (name.empty() || name.find_first_of(reservedInside) != std::string::npos || name.find_first_of(reservedFirst) == 0) {
    throw RuntimeError(what + ": not a name that an ini file can hold", FailureKind::Data);
  }
}

}  // namespace

// The parser reads; what is set goes into the text, since the parser would write it anew, without the comments at its
// end and with sections that stand there twice put together.
struct IniFile::Impl {
  std::string text;
  CSimpleIniCaseA ini{/* UTF-8 */ true, /* multi key */ false, /* multi line */ false};

  void read(const std::string& name) {
    ini.Reset();
    const SI_Error result = ini.LoadData(text.data(), text.size());
    if (result == SI_NOMEM) {
      throw std::bad_alloc();
    }
    if (result < 0) {
      throw RuntimeError(name + ": not an ini file", FailureKind::Configuration);
    }
  }
};

IniFile::IniFile(std::unique_ptr<Impl> impl) : m_impl(std::move(impl)) {}

IniFile::IniFile(const std::string& path, Malformed malformed)
    : IniFile(parse(readFileText(path, kLargestIniFile, FailureKind::Configuration), path, malformed)) {}

IniFile IniFile::parse(const std::string& text, const std::string& name, Malformed malformed) {
  if (text.find('\0') != std::string::npos) {
    throw RuntimeError(name + ": not an ini file (it holds NUL bytes)", FailureKind::Configuration);
  }
  if (malformed == Malformed::Refused) {
    if (const auto line = malformedIniLine(text)) {
      throw RuntimeError(
          name + ": line " + std::to_string(*line) + " is neither a section, a key with a value nor a comment",
          FailureKind::Configuration);
    }
  }
  auto impl = std::make_unique<Impl>();
  impl->text = text;
  impl->read(name);
  return IniFile(std::move(impl));
}

IniFile::~IniFile() = default;
IniFile::IniFile(IniFile&&) noexcept = default;
IniFile& IniFile::operator=(IniFile&&) noexcept = default;

bool IniFile::hasSection(const std::string& section) const {
  return m_impl->ini.GetSection(section.c_str()) != nullptr;
}

std::vector<std::string> IniFile::sections() const {
  CSimpleIniCaseA::TNamesDepend names;
  m_impl->ini.GetAllSections(names);
  names.sort(CSimpleIniCaseA::Entry::LoadOrder());
  std::vector<std::string> result;
  for (const auto& name : names) {
    result.emplace_back(name.pItem);
  }
  return result;
}

std::optional<std::string> IniFile::get(const std::string& section, const std::string& key) const {
  const char* value = m_impl->ini.GetValue(section.c_str(), key.c_str(), nullptr);
  return value != nullptr ? std::optional<std::string>(value) : std::nullopt;
}

std::vector<std::pair<std::string, std::string>> IniFile::items(const std::string& section) const {
  CSimpleIniCaseA::TNamesDepend keys;
  m_impl->ini.GetAllKeys(section.c_str(), keys);
  keys.sort(CSimpleIniCaseA::Entry::LoadOrder());
  std::vector<std::pair<std::string, std::string>> result;
  for (const auto& key : keys) {
    result.emplace_back(key.pItem, m_impl->ini.GetValue(section.c_str(), key.pItem, ""));
  }
  return result;
}

void IniFile::set(const std::string& section, const std::string& key, const std::string& value) {
  refuseWhatIsNoName(section, "]", "", "section " + section);
  refuseWhatIsNoName(key, "=", "[;#", "key " + key);
  refuseWhatALineCannotHold(value, key);
  const std::string before = std::exchange(m_impl->text, withIniValue(m_impl->text, section, key, value));
  m_impl->read(key);
  if (get(section, key) != value) {
    m_impl->text = before;
    m_impl->read(key);
    throw RuntimeError(key + ": cannot be set", FailureKind::Data);
  }
}

const std::string& IniFile::text() const {
  return m_impl->text;
}

void IniFile::write(const std::string& path, mode_t mode) const {
  replaceFile(path, m_impl->text, mode);
}

}  // namespace zaroruntime
