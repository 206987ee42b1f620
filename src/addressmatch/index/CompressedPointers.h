// References of 32 bits to objects anywhere in memory.
//
// Lattner, Adve, "Transparent Pointer Compression for Linked Data Structures", MSP 2005: offsets in the place of pointers, here
// from the starts of the regions of 16 MiB that objects lie in. An object's region and offset make its reference.
//
//   invariant   an object has one reference, and 0 stands for null
//   cost        a look-up reads the region's start, which a near cache holds
//   memory      8 bytes a region; up to 2047 regions, 32 GiB. Where pointers have 32 bits, they are the references
#pragma once

#include <cstddef>
#include <cstdint>
#include <unordered_map>
#include <vector>

namespace zaro_addressmatch {

class CompressedPointers {
 public:
  using Reference = std::uint32_t;

  template <typename Object>
  const Object* at(Reference reference) const {
    if constexpr (kAreReferences) {
      return reinterpret_cast<const Object*>(static_cast<std::uintptr_t>(reference));
    } else {
      return reinterpret_cast<const Object*>(m_starts[reference >> kOffsetBits] + reference % kOffsets * kAlignment);
    }
  }

 private:
  friend class PointerCompressor;

  static constexpr bool kAreReferences = sizeof(void*) == sizeof(Reference);
  static constexpr unsigned int kOffsetBits = 21;
  static constexpr Reference kOffsets = Reference{1} << kOffsetBits;
  static constexpr std::size_t kAlignment = 8;
  static constexpr std::uintptr_t kRegion = kOffsets * kAlignment;
  static constexpr std::size_t kMostRegions = std::size_t{1} << (32 - kOffsetBits);

  std::vector<const char*> m_starts = std::vector<const char*>(1);  // the first is null, for null alone
};

// Makes the references.
class PointerCompressor {
 public:
  explicit PointerCompressor(CompressedPointers& pointers) : m_pointers(pointers) {}

  // 0 for an object that cannot have a reference: it is not aligned to 8 bytes, or there are too many regions. Throws
  // std::bad_alloc.
  CompressedPointers::Reference referenceTo(const void* object) {
    const auto address = reinterpret_cast<std::uintptr_t>(object);
    if constexpr (CompressedPointers::kAreReferences) {
      return static_cast<CompressedPointers::Reference>(address);
    }
    const std::size_t offset = address % CompressedPointers::kRegion;
    const char* start = static_cast<const char*>(object) - offset;
    if (object == nullptr || offset % CompressedPointers::kAlignment != 0 || (start != m_lastStart && !enter(start))) {
      return 0;
    }
    return static_cast<CompressedPointers::Reference>(m_lastRegion << CompressedPointers::kOffsetBits |
                                                      offset / CompressedPointers::kAlignment);
  }

 private:
  // Makes the region that begins there the last one. False for one too many.
  bool enter(const char* start) {
    std::vector<const char*>& starts = m_pointers.m_starts;
    if (const auto known = m_regions.find(start); known != m_regions.end()) {
      m_lastRegion = known->second;
    } else {
      if (starts.size() == CompressedPointers::kMostRegions) {
        return false;
      }
      m_lastRegion = starts.size();
      m_regions.emplace(start, m_lastRegion);
      starts.push_back(start);
    }
    m_lastStart = start;
    return true;
  }

  CompressedPointers& m_pointers;
  std::unordered_map<const char*, std::size_t> m_regions;
  // Objects that are met one after the other mostly lie together. At first that of null.
  const char* m_lastStart = nullptr;
  std::size_t m_lastRegion = 0;
};

}  // namespace zaro_addressmatch
