#include "nxcollections.h"

namespace {
const std::size_t kIndexThreshold = 16;
}

// The block size is an allocation hint of the interface; an empty map here
// allocates nothing at all, which is cheaper than any block.
CMapStringToString::CMapStringToString(int /*blockSize*/) {}

CMapStringToString::CMapStringToString(const CMapStringToString& other) : m_pairs(other.m_pairs) {
  if (other.m_index) IndexFrom(0);
}

CMapStringToString& CMapStringToString::operator=(const CMapStringToString& other) {
  if (this != &other) {
    m_pairs = other.m_pairs;
    m_index.reset();
    if (m_pairs.size() > kIndexThreshold) IndexFrom(0);
  }
  return *this;
}

CMapStringToString::~CMapStringToString() = default;

std::ptrdiff_t CMapStringToString::Find(const unsigned short* key, std::size_t length) const {
  if (m_index) {
    const auto it = m_index->find(Obx_String(key, static_cast<int>(length)));
    return it == m_index->end() ? -1 : static_cast<std::ptrdiff_t>(it->second);
  }
  for (std::size_t k = 0; k < m_pairs.size(); ++k) {
    const Obx_StdString& s = m_pairs[k].first.Std();
    if (s.size() == length && s.compare(0, length, key, length) == 0) return static_cast<std::ptrdiff_t>(k);
  }
  return -1;
}

void CMapStringToString::IndexFrom(std::size_t first) {
  if (!m_index) {
    m_index.reset(new std::unordered_map<Obx_String, std::size_t>());
    first = 0;
  }
  for (std::size_t k = first; k < m_pairs.size(); ++k) (*m_index)[m_pairs[k].first] = k;
}

bool CMapStringToString::Lookup(const unsigned short* key, Obx_String& value) const {
  const Obx_String* found = PLookup(key);
  if (!found) return false;
  value = *found;
  return true;
}

const Obx_String* CMapStringToString::PLookup(const unsigned short* key) const {
  const std::ptrdiff_t k = Find(key, static_cast<std::size_t>(_tcslen(key)));
  return k < 0 ? nullptr : &m_pairs[static_cast<std::size_t>(k)].second;
}

void CMapStringToString::SetAt(const unsigned short* key, const unsigned short* value) {
  SetAt(Obx_String(key), Obx_String(value));
}

void CMapStringToString::SetAt(const Obx_String& key, const Obx_String& value) {
  SetAt(Obx_String(key), Obx_String(value));
}

void CMapStringToString::SetAt(Obx_String&& key, Obx_String&& value) {
  const std::ptrdiff_t k = Find(key.GetData(), static_cast<std::size_t>(key.GetLength()));
  if (k >= 0) {
    m_pairs[static_cast<std::size_t>(k)].second = std::move(value);
    return;
  }
  m_pairs.emplace_back(std::move(key), std::move(value));
  if (m_index || m_pairs.size() > kIndexThreshold) IndexFrom(m_pairs.size() - 1);
}

void CMapStringToString::RemoveAll() {
  m_pairs.clear();
  m_index.reset();
}

POSITION CMapStringToString::GetStartPosition() const {
  // Positions are the index of the next pair plus one, so that null ends.
  return m_pairs.empty() ? nullptr : reinterpret_cast<POSITION>(std::size_t(1));
}

void CMapStringToString::GetNextAssoc(POSITION& pos, Obx_String& key, Obx_String& value) const {
  const std::size_t k = reinterpret_cast<std::size_t>(pos) - 1;
  key = m_pairs[k].first;
  value = m_pairs[k].second;
  pos = k + 1 < m_pairs.size() ? reinterpret_cast<POSITION>(k + 2) : nullptr;
}
