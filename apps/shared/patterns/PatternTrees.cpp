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
#include "store/Administration.h"

namespace {

constexpr KxEmailBelongsTo kUsualKind = 1;
using Source = TreeSource::Part::Source;

struct GroupPrefix {
  std::string_view text;
  Source source;
};
constexpr GroupPrefix kGroupPrefixes[] = {{"group:", Source::Group}, {"group-id:", Source::GroupId}};

TreeSource::Part parsePart(const std::string& text, Source source) {
  const std::size_t colon = text.rfind(':');
  const auto kind = colon != std::string::npos ? kindOf(text.substr(colon + 1)) : std::nullopt;
  // A colon may be part of the name.
  return kind ? TreeSource::Part{text.substr(0, colon), *kind, source} : TreeSource::Part{text, kUsualKind, source};
}

// The text up to the next comma without a backslash before it, which is then left out; `at` goes behind the comma, and
// beyond the end of the text with the last part.
std::string nextFile(const std::string& text, std::size_t& at) {
  std::string file;
  for (; at < text.size() && text[at] != ','; ++at) {
    const bool isEscaped = text[at] == '\\' && at + 1 < text.size() && text[at + 1] == ',';
    at += isEscaped ? 1 : 0;
    file += text[at];
  }
  ++at;
  return file;
}

TreeSource parseTreeSource(const std::string& text) {
  for (const GroupPrefix& prefix : kGroupPrefixes) {
    if (text.compare(0, prefix.text.size(), prefix.text) == 0) {
      const TreeSource::Part group = parsePart(text.substr(prefix.text.size()), prefix.source);  // may hold commas
      if (group.name.empty()) {
        throw UsageError(quoted(text) + " names no group; a tree of one is group:NAME[:KIND] or group-id:ID[:KIND]");
      }
      return {text, {group}};
    }
  }
  TreeSource source{text, {}};
  for (std::size_t at = 0; at <= text.size();) {
    source.parts.push_back(parsePart(nextFile(text, at), Source::File));
    if (source.parts.back().name.empty()) {
      throw UsageError(quoted(text) + " names no file; a tree is FILE[:KIND][,FILE[:KIND]...]");
    }
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
    if (part.source == Source::File) {
      _loadFile(part, add, badLine, progress);
    } else {
      _loadGroup(part, add, progress);
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
  const StoredGroup group =
      part.source == Source::Group ? findGroup(part.name) : findGroup(idArgument("--tree", part.name));
  for (const std::string& member : membersOf(group)) {
    add({m_roots.size() - 1, part.name, ++place, member, part.kind, *m_roots.back()});
    progress.count(0);
  }
}
