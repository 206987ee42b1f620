#include "PatternTrees.h"

#include <algorithm>
#include <new>
#include <utility>

#include "KxWildcardEmail.h"
#include "Text.h"
#include "UsageError.h"

namespace {

constexpr KxEmailBelongsTo kUsualKind = 1;
constexpr const char* kGroupPrefix = "group:";

TreeSource::File parseFile(const std::string& text) {
  const std::size_t colon = text.rfind(':');
  if (colon == std::string::npos) {
    return {text, kUsualKind};
  }
  const auto kind = kindOf(text.substr(colon + 1));
  // A colon may be part of a file's name.
  return kind ? TreeSource::File{text.substr(0, colon), *kind} : TreeSource::File{text, kUsualKind};
}

TreeSource parseTreeSource(const std::string& text) {
  if (text.rfind(kGroupPrefix, 0) == 0) {
    throw UsageError(quoted(text) + ": trees of address groups are not known yet; name pattern files");
  }
  TreeSource source{text, {}};
  for (std::size_t begin = 0; begin <= text.size();) {
    const std::size_t end = std::min(text.find(',', begin), text.size());
    source.files.push_back(parseFile(text.substr(begin, end - begin)));
    if (source.files.back().path.empty()) {
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

  for (const TreeSource::File& named : source.files) {
    PatternFile file(named.path);
    progress.startFile(named.path, file.lines().size());
    PatternLine line;
    for (bool more = true; more;) {
      try {
        more = file.next(line);
        if (more) {
          add({m_roots.size() - 1, named.path, line.number, line.pattern, line.kind.value_or(named.kind),
               *m_roots.back()});
          progress.count(file.lines().bytesRead());
        }
      } catch (const BadLine& bad) {
        badLine(named.path, file.lines().lineNumber(), bad);
      }
    }
  }
}
