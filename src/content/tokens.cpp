// The token base: the allocator that keeps freed tokens for the next ones,
// the base destructors, and the descriptions of the token kinds.
#include <cstddef>
#include <new>

#include "sanitizer.h"
#include "xmlcontent.h"

NXObject::~NXObject() = default;
XmlToken::~XmlToken() = default;

namespace {

// Blocks are kept by their exact size, so a block only ever serves objects
// of the size it was allocated for (whoever allocated it), for sizes in
// steps of 8 bytes below kSizes steps (every token class of the library);
// other sizes bypass the cache. The cache holds at most kCacheBytes a
// thread, so a freed tree never parks much memory. Under the address
// sanitizer a parked block is poisoned whole until it is handed out again,
// so a token used after it was freed is caught as with the allocator.
const std::size_t kStep = 8;
const std::size_t kSizes = 48;
const std::size_t kCacheBytes = 256 * 1024;

struct FreeBlock {
  FreeBlock* next;
};

// Plain data, so that reaching it costs no initialisation check.
struct TokenCache {
  FreeBlock* heads[kSizes];
  std::size_t bytes;
  bool registered;  // the closer below will empty it when the thread ends
  bool closed;      // emptied: blocks freed from now on go to the allocator
};
thread_local TokenCache t_cache;

void EmptyCache(TokenCache& cache) {
  for (std::size_t k = 0; k < kSizes; ++k) {
    while (FreeBlock* block = cache.heads[k]) {
      NXXML_UNPOISON(block, k * kStep);
      cache.heads[k] = block->next;
      ::operator delete(block);
    }
  }
  cache.bytes = 0;
}

struct CacheCloser {
  void Register() {}
  ~CacheCloser() {
    EmptyCache(t_cache);
    t_cache.closed = true;
  }
};
thread_local CacheCloser t_closer;

// The cache slot of a size, kSizes for one the cache does not keep.
std::size_t SizeClass(std::size_t size) { return size % kStep == 0 && size / kStep < kSizes ? size / kStep : kSizes; }

}  // namespace

void* XmlToken::operator new(std::size_t size) {
  const std::size_t k = SizeClass(size);
  if (k >= kSizes) return ::operator new(size);
  TokenCache& cache = t_cache;
  if (FreeBlock* block = cache.heads[k]) {
    NXXML_UNPOISON(block, size);
    cache.heads[k] = block->next;
    cache.bytes -= size;
    return block;
  }
  return ::operator new(size);
}

void XmlToken::operator delete(void* p, std::size_t size) noexcept {
  if (!p) return;
  const std::size_t k = SizeClass(size);
  TokenCache& cache = t_cache;
  if (k >= kSizes || cache.closed || cache.bytes + size > kCacheBytes) {
    ::operator delete(p);
    return;
  }
  if (!cache.registered) {
    cache.registered = true;
    t_closer.Register();
  }
  FreeBlock* block = static_cast<FreeBlock*>(p);
  block->next = cache.heads[k];
  NXXML_POISON(block, size);
  cache.heads[k] = block;
  cache.bytes += size;
}

void* XmlToken::operator new(std::size_t size, const std::nothrow_t&) noexcept {
  try {
    return operator new(size);
  } catch (...) {
    return nullptr;
  }
}

void XmlToken::operator delete(void* p, const std::nothrow_t&) noexcept {
  // Only reached when a constructor raised after a nothrow new, whose block
  // (fresh or from the cache) is a plain ::operator new block.
  ::operator delete(p);
}
XmlContent::~XmlContent() = default;

// Entry 4 keeps its historical spelling: messages quote it as it stands.
const unsigned short* const XmlTokenTypeDescriptions[9] = {
    NX_U16(u"an XML start tag"),    NX_U16(u"an XML end tag"),
    NX_U16(u"character data"),      NX_U16(u"an XML reference"),
    NX_U16(u"an XML CD secion"),    NX_U16(u"an XML process instruction"),
    NX_U16(u"a comment"),           NX_U16(u"end of file"),
    NX_U16(u"an illegal token"),
};
