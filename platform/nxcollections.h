// Collections: the attribute map and the string array.
#pragma once

#include <cstddef>
#include <memory>
#include <unordered_map>
#include <utility>
#include <vector>

#include "nxplatform_export.h"
#include "nxstrings.h"

// An iteration position: opaque to callers, null at the end.
struct __POSITION;
typedef __POSITION* POSITION;

// Name-to-value map. Iteration follows insertion order, and replacing the
// value of a name keeps its place, so a packet read and written back keeps
// its attribute order. Callers must not rely on any order all the same.
// Keys are matched exactly, unit by unit.
class NXPLATFORM_API CMapStringToString {
 public:
  explicit CMapStringToString(int blockSize = 10);
  CMapStringToString(const CMapStringToString& other);
  CMapStringToString& operator=(const CMapStringToString& other);
  CMapStringToString(CMapStringToString&&) noexcept = default;
  CMapStringToString& operator=(CMapStringToString&&) noexcept = default;
  ~CMapStringToString();

  int GetCount() const { return static_cast<int>(m_pairs.size()); }
  bool IsEmpty() const { return m_pairs.empty(); }

  // Copies the value of key into value; false (value untouched) when absent.
  bool Lookup(const unsigned short* key, Obx_String& value) const;
  // The stored value of key, or null when absent.
  const Obx_String* PLookup(const unsigned short* key) const;
  // Inserts, or replaces the value of an existing key in place.
  void SetAt(const unsigned short* key, const unsigned short* value);
  void SetAt(const Obx_String& key, const Obx_String& value);
  void SetAt(Obx_String&& key, Obx_String&& value);
  void RemoveAll();
  // Makes room for count pairs in all, so that filling a map whose size is
  // known allocates once.
  void Reserve(int count) {
    if (count > 0) m_pairs.reserve(static_cast<std::size_t>(count));
  }

  POSITION GetStartPosition() const;
  // Copies out the pair at pos and advances it; pos becomes null after the
  // last pair.
  void GetNextAssoc(POSITION& pos, Obx_String& key, Obx_String& value) const;
  // Direct access in iteration order, 0 <= i < GetCount().
  const Obx_String& KeyAt(int i) const { return m_pairs[static_cast<std::size_t>(i)].first; }
  const Obx_String& ValueAt(int i) const { return m_pairs[static_cast<std::size_t>(i)].second; }
  // Values may be rewritten in place; keys may not (they are indexed).
  Obx_String& ValueAt(int i) { return m_pairs[static_cast<std::size_t>(i)].second; }

 private:
  std::ptrdiff_t Find(const unsigned short* key, std::size_t length) const;
  void IndexFrom(std::size_t first);

  std::vector<std::pair<Obx_String, Obx_String>> m_pairs;
  // Built only once a map grows past a handful of names: small maps (the
  // usual start tag) are searched linearly, large hostile ones stay linear
  // in time overall.
  std::unique_ptr<std::unordered_map<Obx_String, std::size_t>> m_index;
};

class NXPLATFORM_API CStringArray {
 public:
  int GetSize() const { return static_cast<int>(m_items.size()); }
  int GetCount() const { return GetSize(); }
  bool IsEmpty() const { return m_items.empty(); }
  const Obx_String& GetAt(int i) const { return m_items[static_cast<std::size_t>(i)]; }
  const Obx_String& operator[](int i) const { return GetAt(i); }
  void SetAt(int i, const Obx_String& s) { m_items[static_cast<std::size_t>(i)] = s; }
  // Appends and returns the new element's index.
  int Add(const Obx_String& s) {
    m_items.push_back(s);
    return GetSize() - 1;
  }
  void RemoveAll() { m_items.clear(); }

 private:
  std::vector<Obx_String> m_items;
};
