#include "patterns/PatternTrees.h"

#include <algorithm>
#include <new>
#include <optional>
#include <string_view>
#include <utility>

#include "KxWildcardEmail.h"
#include "console/Text.h"
#include "console/UsageError.h"
#include "store/AddressGroups.h"

namespace {

constexpr KxEmailBelongsTo kUsualKind = 1;
constexpr std::string_view kGroupPrefix = "group:";

TreeSource::Part parsePart(const std::string& text, bool isGroup) {
  const std::size_t colon = text.rfind(':');
  const auto kind = colon != std::string::npos ? kindOf(text.substr(colon + 1)) : std::nullopt;
  // A colon may be part of the name.
  return kind ? TreeSource::Part{text.substr(0, colon), *kind, isGroup} : TreeSource::Part{text, kUsualKind, isGroup};
}

TreeSource parseTreeSource(const std::string& text) {
  if (text.rfind(kGroupPrefix, 0) == 0) {
    const TreeSource::Part group = parsePart(text.substr(kGroupPrefix.size()), true);  // whose name may hold commas
    if (group.name.empty()) {
      throw UsageError(quoted(text) + " names no group; a tree of one is group:NAME[:KIND]");
    }
    return {text, {group}};
  }
  TreeSource source{text, {}};
  for (std::size_t begin = 0; begin <= text.size();) {
    const std::size_t end = std::min(text.find(',', begin), text.size());
    source.parts.push_back(parsePart(text.substr(begin, end - begin), false));
    if (source.parts.back().name.empty()) {
      throw UsageError(quoted(text) + " names no file; a tree is FILE[:KIND][,FILE[:KIND]...]");
    }
    begin = end + 1;
  }
  return source;
}

}  // namespace

std::vector<TreeSource> parseTreeSources(const std::vector<std::string>& texts) {
  std::vector<TreeSource> sources;
  sources.reserve(texts.size());
  for (const std::string& text : texts) {
    sources.push_back(parseTreeSource(text));
  }
  return sources;
}

void PatternTrees::load(const TreeSource& source, const Adder& add, const BadLineHandler& badLine, Progress& progress) {
  std::unique_ptr<KxWildcardNode> root(KxWildcardEmail::makeNewTree());
  if (root == nullptr) {
    throw std::bad_alloc();
  }
  m_roots.push_back(root.get());
  m_names.push_back(source.text);
  m_owned.push_back(std::move(root));

  for (const TreeSource::Part& part : source.parts) {
    if (part.isGroup) {
      _loadGroup(part, add, progress);
    } else {
      _loadFile(part, add, badLine, progress);
    }
  }
}

void PatternTrees::_loadFile(const TreeSource::Part& part, const Adder& add, const BadLineHandler& badLine,
                             Progress& progress) {
  PatternFile file(part.name);
  progress.startFile(part.name, file.lines().size());
  PatternLine line;
  for (bool more = true; more;) {
    try {
      more = file.next(line);
      if (more) {
        add({m_roots.size() - 1, part.name, line.number, line.pattern, line.kind.value_or(part.kind), *m_roots.back()});
        progress.count(file.lines().bytesRead());
      }
    } catch (const BadLine& bad) {
      badLine(part.name, file.lines().lineNumber(), bad);
    }
  }
}

void PatternTrees::_loadGroup(const TreeSource::Part& part, const Adder& add, Progress& progress) {
  std::size_t place = 0;
  for (const std::string& member : membersOf(findGroup(part.name))) {
    add({m_roots.size() - 1, part.name, ++place, member, part.kind, *m_roots.back()});
    progress.count(0);
  }
}
