// What one may take in the place of the tree: expression matchers, and stores on disk that are mapped into memory.
#pragma once

#include <cdb.h>
#include <fcntl.h>
#include <hs/hs.h>
#include <lmdb.h>
#include <re2/re2.h>
#include <re2/set.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <numeric>
#include <stdexcept>
#include <string>
#include <vector>

#include "Peers.h"

namespace bench {

inline void require(bool succeeded, const char* what) {
  if (!succeeded) {
    throw std::runtime_error(what);
  }
}

// The pattern as an expression for a whole address; a wildcard label is one label or more.
inline std::string expressionOf(const std::string& pattern) {
  std::string expression;
  for (const char character : pattern) {
    expression += character == '*' ? std::string("[^@]+") : RE2::QuoteMeta(std::string(1, character));
  }
  return expression;
}

// Compares the address with every pattern.
class LinearScan {
 public:
  static constexpr std::size_t kMostPatterns = 10000;

  void fill(const std::vector<std::string>& patterns) { m_patterns = patterns; }
  void find(const char* address, Matches& out) const {
    const Candidates candidates(address);
    for (std::uint32_t i = 0; i != m_patterns.size(); ++i) {
      const std::string_view pattern = m_patterns[i];
      const std::size_t at = pattern.find('@');
      const bool sameName = pattern[0] == '*' ? at == 1 : pattern.substr(0, at) == candidates.name();
      if (sameName && isWithin(pattern.substr(at + 1), candidates.domain())) {
        out.push_back(i);
      }
    }
  }

 private:
  static bool isWithin(std::string_view pattern, std::string_view domain) {
    if (pattern[0] != '*') {
      return pattern == domain;
    }
    pattern.remove_prefix(1);
    return domain.size() > pattern.size() && domain.substr(domain.size() - pattern.size()) == pattern;
  }

  std::vector<std::string> m_patterns;
};

class Re2Set {
 public:
  static constexpr std::size_t kMostPatterns = 1000;  // its automata grow too big for more

  void fill(const std::vector<std::string>& patterns) {
    RE2::Options options(RE2::Quiet);
    options.set_case_sensitive(false);
    options.set_max_mem(std::int64_t{4} << 30);
    m_set = std::make_unique<RE2::Set>(options, RE2::ANCHOR_BOTH);
    for (const std::string& pattern : patterns) {
      require(m_set->Add(expressionOf(pattern), nullptr) >= 0, "RE2 refuses a pattern");
    }
    require(m_set->Compile(), "RE2 cannot compile the set");
  }
  void find(const char* address, Matches& out) const {
    m_found.clear();
    m_set->Match(address, &m_found);
    out.insert(out.end(), m_found.begin(), m_found.end());
  }

 private:
  std::unique_ptr<RE2::Set> m_set;
  mutable std::vector<int> m_found;
};

class Hyperscan {
 public:
  static constexpr std::size_t kMostPatterns = 10000;  // more take it minutes to compile

  Hyperscan() = default;
  ~Hyperscan() {
    hs_free_scratch(m_scratch);
    hs_free_database(m_database);
  }
  Hyperscan(const Hyperscan&) = delete;
  Hyperscan& operator=(const Hyperscan&) = delete;

  void fill(const std::vector<std::string>& patterns) {
    std::vector<std::string> texts;
    for (const std::string& pattern : patterns) {
      texts.push_back("^" + expressionOf(pattern) + "$");
    }
    std::vector<const char*> expressions;
    for (const std::string& text : texts) {
      expressions.push_back(text.c_str());
    }
    const std::vector<unsigned int> flags(texts.size(), HS_FLAG_CASELESS | HS_FLAG_SINGLEMATCH);
    std::vector<unsigned int> ids(texts.size());
    std::iota(ids.begin(), ids.end(), 0u);
    hs_compile_error_t* error = nullptr;
    require(hs_compile_multi(expressions.data(), flags.data(), ids.data(), static_cast<unsigned int>(texts.size()),
                             HS_MODE_BLOCK, nullptr, &m_database, &error) == HS_SUCCESS,
            "Hyperscan cannot compile the patterns");
    require(hs_alloc_scratch(m_database, &m_scratch) == HS_SUCCESS, "Hyperscan has no scratch space");
  }
  void find(const char* address, Matches& out) const {
    const auto take = [](unsigned int id, unsigned long long, unsigned long long, unsigned int, void* context) {
      static_cast<Matches*>(context)->push_back(id);
      return 0;
    };
    hs_scan(m_database, address, static_cast<unsigned int>(std::strlen(address)), 0, m_scratch, take, &out);
  }

 private:
  hs_database_t* m_database = nullptr;
  hs_scratch_t* m_scratch = nullptr;
};

// A file that goes with its object.
class TemporaryFile {
 public:
  TemporaryFile() {
    const char* directory = std::getenv("TMPDIR");
    m_path = std::string(directory != nullptr ? directory : "/tmp") + "/match_bench.XXXXXX";
    m_descriptor = mkstemp(m_path.data());
    require(m_descriptor >= 0, "no temporary file");
  }
  ~TemporaryFile() {
    close(m_descriptor);
    unlink(m_path.c_str());
  }
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;

  const char* path() const { return m_path.c_str(); }
  int descriptor() const { return m_descriptor; }

 private:
  std::string m_path;
  int m_descriptor;
};

// Filled in order of the keys, and read in one transaction, which is what it is fastest at.
class Lmdb {
 public:
  Lmdb() = default;
  ~Lmdb() {
    mdb_txn_abort(m_reading);
    mdb_env_close(m_environment);
  }
  Lmdb(const Lmdb&) = delete;
  Lmdb& operator=(const Lmdb&) = delete;

  void fill(const std::vector<std::string>& patterns) {
    std::vector<std::uint32_t> order(patterns.size());
    std::iota(order.begin(), order.end(), 0u);
    std::sort(order.begin(), order.end(),
              [&](std::uint32_t one, std::uint32_t other) { return patterns[one] < patterns[other]; });
    require(mdb_env_create(&m_environment) == 0, "LMDB cannot begin");
    mdb_env_set_mapsize(m_environment, std::size_t{8} << 30);
    require(mdb_env_open(m_environment, m_file.path(), MDB_NOSUBDIR | MDB_NOSYNC | MDB_NOLOCK, 0600) == 0,
            "LMDB cannot open its file");
    MDB_txn* writing = nullptr;
    require(mdb_txn_begin(m_environment, nullptr, 0, &writing) == 0, "LMDB cannot write");
    require(mdb_dbi_open(writing, nullptr, 0, &m_database) == 0, "LMDB cannot open its database");
    for (std::uint32_t number : order) {
      MDB_val key = {patterns[number].size(), const_cast<char*>(patterns[number].data())};
      MDB_val value = {sizeof number, &number};
      require(mdb_put(writing, m_database, &key, &value, MDB_APPEND) == 0, "LMDB refuses a pattern");
    }
    require(mdb_txn_commit(writing) == 0, "LMDB cannot commit");
    require(mdb_txn_begin(m_environment, nullptr, MDB_RDONLY, &m_reading) == 0, "LMDB cannot read");
  }
  void find(const char* address, Matches& out) const {
    Candidates(address).forEachKey([&](std::string_view text) {
      MDB_val key = {text.size(), const_cast<char*>(text.data())};
      MDB_val value;
      if (mdb_get(m_reading, m_database, &key, &value) == 0) {
        std::uint32_t number;
        std::memcpy(&number, value.mv_data, sizeof number);
        out.push_back(number);
      }
    });
  }

 private:
  TemporaryFile m_file;
  MDB_env* m_environment = nullptr;
  MDB_dbi m_database = 0;
  MDB_txn* m_reading = nullptr;
};

class Cdb {
 public:
  Cdb() = default;
  ~Cdb() { cdb_free(&m_reading); }
  Cdb(const Cdb&) = delete;
  Cdb& operator=(const Cdb&) = delete;

  void fill(const std::vector<std::string>& patterns) {
    cdb_make writing;
    require(cdb_make_start(&writing, m_file.descriptor()) == 0, "cdb cannot begin");
    for (std::uint32_t i = 0; i != patterns.size(); ++i) {
      require(cdb_make_add(&writing, patterns[i].data(), static_cast<unsigned int>(patterns[i].size()), &i, sizeof i) == 0,
              "cdb refuses a pattern");
    }
    require(cdb_make_finish(&writing) == 0, "cdb cannot finish");
    require(cdb_init(&m_reading, m_file.descriptor()) == 0, "cdb cannot read");
  }
  void find(const char* address, Matches& out) const {
    Candidates(address).forEachKey([&](std::string_view key) {
      if (cdb_find(&m_reading, key.data(), static_cast<unsigned int>(key.size())) > 0) {
        std::uint32_t number;
        std::memcpy(&number, cdb_getdata(&m_reading), sizeof number);
        out.push_back(number);
      }
    });
  }

 private:
  TemporaryFile m_file;
  mutable cdb m_reading = {};
};

}  // namespace bench
