// Trees of address patterns, loaded from pattern files and address groups.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "KxWildcardNode.h"
#include "console/Progress.h"
#include "patterns/PatternFile.h"

// One tree as the command line names it: FILE[:KIND][,FILE[:KIND]...], group:NAME[:KIND] or
// group-id:ID[:KIND]. A comma of a file's name has a backslash before it.
struct TreeSource {
  struct Part {
    std::string name;       // of the file or the group, or its identifier
    KxEmailBelongsTo kind;  // of the lines that have none of their own, and of members
    enum class Source { File, Group, GroupId } source = Source::File;
  };

  std::string text;  // as given
  std::vector<Part> parts;
};

// One for each text, in their order. Throws UsageError.
std::vector<TreeSource> parseTreeSources(const std::vector<std::string>& texts);

// A pattern on its way into a tree.
struct PatternOrigin {
  std::size_t tree;
  const std::string& file;  // or group
  std::size_t line;         // or place among the members, from 1
  const std::string& pattern;
  KxEmailBelongsTo kind;
  KxWildcardNode& root;
};

class PatternTrees {
 public:
  // Adds one pattern. What it does with a refusal is its business.
  using Adder = std::function<void(const PatternOrigin&)>;
  // Told of a line that is no pattern; may throw it.
  using BadLineHandler = std::function<void(const std::string& file, std::size_t line, const BadLine& bad)>;

  // Makes a tree and loads its parts. Throws RuntimeError when one cannot be read.
  void load(const TreeSource& source, const Adder& add, const BadLineHandler& badLine, Progress& progress);

  // In order of loading, which is the order of precedence.
  std::vector<KxWildcardNode*>& roots() { return m_roots; }
  // A tree as the command line named it.
  const std::string& name(std::size_t tree) const { return m_names[tree]; }

 private:
  void _loadFile(const TreeSource::Part& part, const Adder& add, const BadLineHandler& badLine, Progress& progress);
  void _loadGroup(const TreeSource::Part& part, const Adder& add, Progress& progress);

  std::vector<std::unique_ptr<KxWildcardNode>> m_owned;
  std::vector<KxWildcardNode*> m_roots;
  std::vector<std::string> m_names;
};
