// The content model: reference-counted tokens (start tags, end tags,
// character data, elements) that render themselves as XML text.
//
// How to read the comments below. "Raises" means throws a QmMsgException*
// (catch it by pointer, read its messages, free it with Delete()); nothing
// returns an error code. Tokens are shared through NXSmartPtr and die with
// their last holder; a raw pointer that changes hands says so. Costs are
// constant unless stated; n is the number of an element's content items.
// Every std::string_view parameter is UTF-8 and raises message 27317 when
// malformed, as the input stream does; the ...Utf8 getters return UTF-8.
// Nothing here is safe to share between threads.
#pragma once

#include <cstddef>
#include <iterator>
#include <new>
#include <string>
#include <string_view>
#include <type_traits>
#include <typeinfo>
#include <utility>
#include <vector>

#include "nxcollections.h"
#include "nxdatetime.h"
#include "nxdiagnostics.h"
#include "nxmessages.h"
#include "nxstrings.h"
#include "nxxml_export.h"

class IXmlStream;
class XmlCharData;
class XmlConverter;
class XmlElement;
class XmlETag;
class XmlSTag;
// Extraction operators, declared here for the friendships below (see xmlstream.h).
NXXML_API IXmlStream& operator>>(IXmlStream& in, XmlSTag& tag);
NXXML_API IXmlStream& operator>>(IXmlStream& in, XmlETag& tag);

// Version identification of the library, for the application's version
// tooling: the version number ("0.1.0") and a line that also names the
// parser and Unicode libraries it runs with.
// Static texts, never freed.
NXXML_API const char* NxXmlGetVersion();
NXXML_API const char* NxXmlGetVersionInfo();

// ---------------------------------------------------------------------------
// Where a token was read.

// A plain value: line, column, byte index and optional file index.
class NXXML_API XmlSourceLocation {
 public:
  // Unset; the numbers read as zero until a Set.
  XmlSourceLocation() = default;

  // Marks the location unset; the numbers stay.
  void Unset() { m_set = false; }
  // Sets line, column and byte index (and the file index of a multi-file input).
  void Set(int line, int column, int byteIndex) { SetPosition(line, column, byteIndex); }
  void Set(int line, int column, int byteIndex, int fileIndex) { SetPosition(line, column, byteIndex, fileIndex); }
  // The same with 64-bit numbers: an input past 2 GiB (standard input, a
  // joined series) has places that an int cannot hold. The int interfaces
  // see them cut to 32 bits; Position and everything the library renders
  // see them whole.
  void SetPosition(long long line, long long column, long long byteIndex) {
    m_set = true;
    m_line = line;
    m_column = column;
    m_byteIndex = byteIndex;
    m_hasFileIndex = false;
  }
  void SetPosition(long long line, long long column, long long byteIndex, int fileIndex) {
    SetPosition(line, column, byteIndex);
    m_hasFileIndex = true;
    m_fileIndex = fileIndex;
  }
  // True after a Set or SetPosition, false after Unset.
  bool HasBeenSet() const { return m_set; }
  // Copies all five values out, set or not (the numbers cut to int).
  void Values(int& line, int& column, int& byteIndex, bool& hasFileIndex, int& fileIndex) const {
    line = static_cast<int>(m_line);
    column = static_cast<int>(m_column);
    byteIndex = static_cast<int>(m_byteIndex);
    hasFileIndex = m_hasFileIndex;
    fileIndex = m_fileIndex;
  }
  // Line, column and byte index whole, set or not.
  void Position(long long& line, long long& column, long long& byteIndex) const {
    line = m_line;
    column = m_column;
    byteIndex = m_byteIndex;
  }
  // Whether the location names a file of a multi-file input, and which.
  bool Index(int& fileIndex) const {
    fileIndex = m_fileIndex;
    return m_hasFileIndex;
  }

 private:
  bool m_set = false;
  bool m_hasFileIndex = false;
  int m_fileIndex = 0;
  long long m_line = 0;
  long long m_column = 0;
  long long m_byteIndex = 0;
};

// ---------------------------------------------------------------------------
// Reference counting.

// Intrusive reference-counted base of every token. The count belongs to the
// object, not to its value: a copy starts at 0 and assignment keeps it.
class NXXML_API NXObject {
 public:
  // Count 0: the first NXSmartPtr to take the object makes it 1.
  NXObject() = default;
  NXObject(const NXObject&) : m_refCount(0) {}
  NXObject& operator=(const NXObject&) { return *this; }
  virtual ~NXObject();

  // The number of holders.
  virtual long GetRefCount() const { return m_refCount; }
  // One holder more; returns the new count. NXSmartPtr calls it; call it by hand only to pair with Release.
  virtual long AddRef() { return ++m_refCount; }
  // Deletes the object when the count drops to exactly 0; the object must
  // not be touched after a release that returned 0.
  virtual long Release() {
    const long count = --m_refCount;
    if (count == 0) delete this;
    return count;
  }

 private:
  int m_refCount = 0;
};

// The demangled name of a type, for the reference trace.
NXXML_API const char* NxTypeName(const std::type_info& type);

// Owner of a shared token. Reference operations are traced through
// diagnostic 36 when it is on; assignment stores the new pointer and takes
// its reference before dropping the old one, so assigning a pointer that the
// old object owns stays safe.
template <class T>
class NXSmartPtr {
 public:
  // Holds nothing.
  NXSmartPtr() = default;
  // Takes a reference on p (null allowed): a new token handed over this way is owned from then on.
  NXSmartPtr(T* p) : m_p(p) {
    if (m_p) Take(m_p);
  }
  // Shares other's object: one reference more.
  NXSmartPtr(const NXSmartPtr& other) : m_p(other.m_p) {
    if (m_p) Take(m_p);
  }
  template <class U>
  NXSmartPtr(const NXSmartPtr<U>& other) : m_p(other.get()) {
    if (m_p) Take(m_p);
  }
  // A move hands the reference over: no count changes, nothing to trace.
  NXSmartPtr(NXSmartPtr&& other) noexcept : m_p(other.m_p) { other.m_p = nullptr; }
  // Drops the reference; the object dies with its last one.
  ~NXSmartPtr() { reset(); }

  // Shares the new object, then drops the old one.
  NXSmartPtr& operator=(const NXSmartPtr& other) { return Assign(other.m_p); }
  template <class U>
  NXSmartPtr& operator=(const NXSmartPtr<U>& other) {
    return Assign(other.get());
  }
  NXSmartPtr& operator=(T* p) { return Assign(p); }
  NXSmartPtr& operator=(NXSmartPtr&& other) noexcept {
    if (this != &other) {
      T* old = m_p;
      m_p = other.m_p;
      other.m_p = nullptr;
      if (old) Drop(old);
    }
    return *this;
  }

  // Drops the reference and holds nothing.
  void reset() {
    if (m_p) {
      Drop(m_p);
      m_p = nullptr;
    }
  }
  // Gives up ownership without dropping the reference.
  T* detach() {
    T* p = m_p;
    m_p = nullptr;
    return p;
  }

  // The object, unchecked; borrowed while this pointer holds it.
  T* get() const { return m_p; }
  T* operator->() const { return m_p; }
  T& operator*() const { return *m_p; }
  explicit operator bool() const { return m_p != nullptr; }

 private:
  NXSmartPtr& Assign(T* p) {
    if (p == m_p) return *this;
    T* old = m_p;
    m_p = p;
    if (p) Take(p);
    if (old) Drop(old);
    return *this;
  }
  static void Take(T* p) {
    if (AdDiagnostic::m_DiagnosticFlags[36]) {
      const long count = p->GetRefCount() + 1;
      AdDiagnostic::TestAndReportV(36, count, 0, "Refs", "%S@0x%08x %s%ld", NxTypeName(typeid(T*)),
                                   static_cast<const void*>(p), "+", count);
    }
    p->AddRef();
  }
  static void Drop(T* p) {
    if (AdDiagnostic::m_DiagnosticFlags[36]) {
      const long count = p->GetRefCount();
      AdDiagnostic::TestAndReportV(36, count, 0, "Refs", "%S@0x%08x %s%ld", NxTypeName(typeid(T*)),
                                   static_cast<const void*>(p), "-", count);
    }
    p->Release();
  }

  T* m_p = nullptr;
};

template <class T, class U>
// Identity of the held objects, not equality of their contents.
bool operator==(const NXSmartPtr<T>& a, const NXSmartPtr<U>& b) {
  return a.get() == b.get();
}
template <class T, class U>
bool operator!=(const NXSmartPtr<T>& a, const NXSmartPtr<U>& b) {
  return a.get() != b.get();
}

// ---------------------------------------------------------------------------
// Tokens.

// Kinds of token. Values 3 to 6 have no token class; they are kept for the
// description texts that messages index by value.
enum XmlToken_t {
  XT_STAG = 0,
  XT_ETAG = 1,
  XT_CHARDATA = 2,
  XT_REFERENCE = 3,
  XT_CDSECTION = 4,
  XT_PI = 5,
  XT_COMMENT = 6,
  XT_EOF = 7,
  XT_ILLEGAL = 8
};

// The description of each token kind ("an XML start tag", ...), indexed by
// XmlToken_t; used to word messages about an unexpected token.
extern NXXML_API const unsigned short* const XmlTokenTypeDescriptions[9];

// Base of every token: a type, an XML image and the place it was read.
class NXXML_API XmlToken : public NXObject {
 public:
  ~XmlToken() override;

  // Reading a packet makes and frees tokens by the hundred thousand, a few
  // sizes over and over: freed blocks are kept in a small cache of the
  // thread for the next token of their size. The placement and nothrow
  // forms stay available as for any class.
  static void* operator new(std::size_t size);
  static void operator delete(void* p, std::size_t size) noexcept;
  static void* operator new(std::size_t size, const std::nothrow_t&) noexcept;
  static void operator delete(void* p, const std::nothrow_t&) noexcept;
  static void* operator new(std::size_t, void* place) noexcept { return place; }
  static void operator delete(void*, void*) noexcept {}

  // The token's kind; elements and error tokens both answer XT_ILLEGAL.
  virtual XmlToken_t GetType() const = 0;
  // The token's XML text. A converter, when given, rewrites names and
  // attribute values on the way out.
  // Raises when the token cannot be rendered (an empty tag name); cost linear in the image.
  virtual Obx_String GetImage(XmlConverter* converter) const = 0;

  // Where the input stream read the token.
  const XmlSourceLocation& GetLocation() const { return m_location; }

  // Where the token was read; unset for tokens not made by an input stream.
  XmlSourceLocation m_location;
};

// An end tag: a name. Also the base of the start tag, which shares its name
// handling: ask GetType(), never the dynamic class, whether a token is an end
// tag.
class NXXML_API XmlETag : public XmlToken {
 public:
  // A tag of that name (null: empty), not marked as named.
  explicit XmlETag(const unsigned short* name = nullptr) : m_name(name) {}
  explicit XmlETag(const Obx_String& name) : m_name(name) {}
  explicit XmlETag(const char16_t* name) : m_name(name) {}

  XmlToken_t GetType() const override { return XT_ETAG; }
  // "</name>"; raises "AdIsNonEmpty(name)" for an empty name.
  Obx_String GetImage(XmlConverter* converter) const override;

  // Renames the tag; a non-empty name also marks the tag as named, which
  // makes the input stream check the name of the tag it reads into it.
  XmlETag& operator()(const unsigned short* name);
  XmlETag& operator()(const char16_t* name) { return (*this)(reinterpret_cast<const unsigned short*>(name)); }
  // The name as stored; print it with std::ostream << (UTF-8) or GetNameUtf8.
  const Obx_String& GetName() const { return m_name; }
  // 1 when a name was given with operator() since the last read into the tag.
  int IsNamed() const { return m_named; }

  // UTF-8 forms. Every std::string_view taking overload of the content model
  // decodes its text strictly and raises message 27317, as the input stream
  // does, on malformed UTF-8; the std::string getters return UTF-8.
  // A tag named in UTF-8; raises 27317 on malformed bytes.
  explicit XmlETag(std::string_view name);
  // Renames from UTF-8, as the UTF-16 form does.
  XmlETag& operator()(std::string_view name);
  std::string GetNameUtf8() const { return m_name.ToUtf8(); }

 protected:
  friend class XmlHelper;
  friend NXXML_API IXmlStream& operator>>(IXmlStream& in, XmlSTag& tag);
  friend NXXML_API IXmlStream& operator>>(IXmlStream& in, XmlETag& tag);
  int m_named = 0;
  Obx_String m_name;
};

// One attribute as a tag's attribute range yields it: the tag's own name and
// value strings, valid while the attribute is neither set again nor removed.
// for (auto [name, value] : tag.Attributes()) binds both.
struct XmlAttribute {
  const Obx_String& name;
  const Obx_String& value;
};

// The attributes of a tag in their order (the order they were set or read
// in; a replaced value keeps its place), one step each. The range borrows
// the tag, which must outlive it.
class XmlAttributeRange {
 public:
  class iterator {
   public:
    using iterator_category = std::forward_iterator_tag;
    using value_type = XmlAttribute;
    using difference_type = std::ptrdiff_t;
    using pointer = void;
    using reference = XmlAttribute;

    iterator() = default;
    iterator(const CMapStringToString* map, int index) : m_map(map), m_index(index) {}
    XmlAttribute operator*() const { return XmlAttribute{m_map->KeyAt(m_index), m_map->ValueAt(m_index)}; }
    iterator& operator++() {
      ++m_index;
      return *this;
    }
    iterator operator++(int) {
      iterator old = *this;
      ++m_index;
      return old;
    }
    // Positions past the map's live count are all its end, so removing
    // attributes during a loop ends it instead of reading past the map.
    bool operator==(const iterator& other) const { return Position() == other.Position(); }
    bool operator!=(const iterator& other) const { return !(*this == other); }

   private:
    int Position() const { return m_map && m_index < m_map->GetCount() ? m_index : -1; }
    const CMapStringToString* m_map = nullptr;
    int m_index = 0;
  };

  explicit XmlAttributeRange(const CMapStringToString& map) : m_map(&map) {}
  // Linear over a loop: one step an attribute.
  iterator begin() const { return iterator(m_map, 0); }
  iterator end() const { return iterator(); }
  // The number of attributes.
  int size() const { return m_map->GetCount(); }
  bool empty() const { return m_map->GetCount() == 0; }

 private:
  const CMapStringToString* m_map;
};

// A start tag: a name, attributes, and an inline text rendered after it.
class NXXML_API XmlSTag : public XmlETag {
 public:
  // A tag of that name, no attributes.
  explicit XmlSTag(const unsigned short* name = nullptr) : XmlETag(name) {}
  explicit XmlSTag(const Obx_String& name) : XmlETag(name) {}
  explicit XmlSTag(const char16_t* name) : XmlETag(name) {}
  // An empty tag with the other's name, attributes and converted flag; the
  // named flag, the inline text and the location are not copied.
  XmlSTag(const XmlSTag& other);
  // Merges: copies the name and the converted flag, clears the named flag,
  // and sets every attribute of other into this tag, keeping attributes that
  // other lacks. Call Clean() first for an exact copy.
  XmlSTag& operator=(const XmlSTag& other);

  // XT_STAG; a start tag is also an XmlETag by class, so test this, not the class.
  XmlToken_t GetType() const override { return XT_STAG; }
  // GetImage(">", converter).
  Obx_String GetImage(XmlConverter* converter) const override;
  // The image closed by terminator (">" or "/>"), followed by a line feed
  // when the tag has attributes, then the inline text.
  // Raises "AdIsNonEmpty(name)" for an empty name and "cvrtr != __null" for inline text without a converter; linear in the attributes.
  Obx_String GetImage(const unsigned short* terminator, XmlConverter* converter) const;

  // Renames and marks the tag named, so the next read into it checks the name.
  XmlSTag& operator()(const unsigned short* name) {
    XmlETag::operator()(name);
    return *this;
  }
  XmlSTag& operator()(const char16_t* name) { return (*this)(reinterpret_cast<const unsigned short*>(name)); }

  // Stores the value and returns 1; with overwrite 0 an existing name is
  // left alone and 0 returned.
  // Copies name and value; amortized constant (a hashed index past a few attributes).
  int SetAttribute(const unsigned short* name, const Obx_String& value, int overwrite);
  int SetAttribute(const unsigned short* name, const unsigned short* value, int overwrite);
  int SetLongAttr(const unsigned short* name, long value, int overwrite);
  // Stores the time as GMT text "YYYY-MM-DD hh:mm:ss".
  int SetTimeAttr(const unsigned short* name, AdDateTime value, int overwrite);

  // 1 when the tag has the attribute (exact, case-sensitive name), else 0.
  int DoesAttributeExist(const unsigned short* name) const;
  // The value, or an empty string for a missing attribute.
  Obx_String GetAttributeByName(const unsigned short* name) const;
  // The value read as a decimal number as strtol does; 0 for a missing or non-numeric value.
  long GetLongAttr(const unsigned short* name) const;
  // The GMT time of the value; a missing or malformed value gives the epoch.
  AdDateTime GetTimeAttr(const unsigned short* name) const;
  // Empties names, then lists the attribute names in the map's order.
  void GetAttributeNames(CStringArray& names) const;
  // The attributes, borrowed; in their order.
  const CMapStringToString& GetAttributes() const { return m_attributes; }
  // The number of attributes.
  int GetAttributeCount() const { return m_attributes.GetCount(); }

  // Marks the attribute values as already passed through an input stream's
  // converter, so a tag read again is not converted twice.
  void SetConverted() { m_converted = 1; }
  // 1 once SetConverted was called.
  int IsConverted() { return m_converted; }
  // Removes all attributes; name and flags stay.
  void Clean() { m_attributes.RemoveAll(); }

  // Text rendered right after the tag, escaped; rendering it needs a converter.
  const Obx_String& GetInlineText() const { return m_inlineText; }
  void SetInlineText(const Obx_String& text) { m_inlineText = text; }

  // UTF-8 forms; overwrite defaults to replacing, as an application means
  // by "set".
  // A tag named in UTF-8.
  explicit XmlSTag(std::string_view name);
  XmlSTag& operator()(std::string_view name) {
    XmlETag::operator()(name);
    return *this;
  }
  // As the UTF-16 forms; both texts are decoded before anything changes, and
  // the value is cut at a zero character as there.
  int SetAttribute(std::string_view name, std::string_view value, int overwrite = 1);
  int SetLongAttr(std::string_view name, long value, int overwrite = 1);
  int SetTimeAttr(std::string_view name, AdDateTime value, int overwrite = 1);
  int DoesAttributeExist(std::string_view name) const;
  Obx_String GetAttributeByName(std::string_view name) const;
  // The value in UTF-8, or empty for a missing attribute.
  std::string GetAttributeUtf8(std::string_view name) const;
  long GetLongAttr(std::string_view name) const;
  AdDateTime GetTimeAttr(std::string_view name) const;
  // Replaces names by the attribute names in UTF-8, in their order; linear.
  void GetAttributeNames(std::vector<std::string>& names) const;
  void SetInlineText(std::string_view text);

  // for (auto [name, value] : tag.Attributes()): the attributes in their order, borrowed from the tag; linear over a loop.
  XmlAttributeRange Attributes() const { return XmlAttributeRange(m_attributes); }

 protected:
  friend class XmlHelper;
  friend NXXML_API IXmlStream& operator>>(IXmlStream& in, XmlSTag& tag);
  CMapStringToString m_attributes{10};
  Obx_String m_inlineText;
  int m_converted = 0;
};

template <class T>
class XmlContentRange;

// An item of an element's content: character data or a nested element.
// Held by elements through NXSmartPtr<XmlContent>; tell the kinds apart with ToElement/ToCharData.
class NXXML_API XmlContent : public XmlToken {
 public:
  ~XmlContent() override;

  // This item as an element or as character data (an error token counts as
  // character data), null when it is the other kind.
  XmlElement* ToElement();
  const XmlElement* ToElement() const;
  XmlCharData* ToCharData();
  const XmlCharData* ToCharData() const;
};

// A run of character data, held unescaped; its image escapes it.
class NXXML_API XmlCharData : public XmlContent {
 public:
  // The first length units of data; a negative length reads up to the
  // terminating zero.
  explicit XmlCharData(const unsigned short* data, long length = -1);
  explicit XmlCharData(const char16_t* data, long length = -1)
      : XmlCharData(reinterpret_cast<const unsigned short*>(data), length) {}
  // A copy of the text.
  // Linear in the text, as every constructor that copies it.
  explicit XmlCharData(const Obx_String& data);
  // Takes the text over without copying it.
  explicit XmlCharData(Obx_String&& data) : m_data(std::move(data)) {}
  // A plain character-data item with the other's text (also when other is an
  // error token); count 0, location unset.
  XmlCharData(const XmlCharData& other);
  // Takes the other's text; count and location stay.
  // Linear in the text.
  XmlCharData& operator=(const XmlCharData& other);
  ~XmlCharData() override;

  XmlToken_t GetType() const override { return XT_CHARDATA; }
  // The text escaped as character data; the converter is not used.
  // Linear in the text.
  Obx_String GetImage(XmlConverter* converter) const override;

  // Appends the first length units of data (up to its zero when negative),
  // growing the buffer by a tenth more than needed.
  // Amortized linear in the units appended.
  void AppendData(const unsigned short* data, long length);
  // The text, unescaped.
  const Obx_String& GetData() const { return m_data; }
  // UTF-8 forms.
  // The UTF-8 text decoded; a zero byte is kept as a zero unit.
  explicit XmlCharData(std::string_view data);
  // Appends the whole UTF-8 text, zero bytes included; nothing on a raise.
  void AppendData(std::string_view data);
  std::string GetDataUtf8() const { return m_data.ToUtf8(); }

  // Takes over other's text (left empty); the capacity becomes its length.
  void TakeDataFrom(XmlCharData& other) {
    m_data = std::move(other.m_data);
    other.m_data.Empty();
    m_capacity = m_data.GetLength();
  }

 protected:
  friend class XmlHelper;
  Obx_String m_data;
  // Size last requested for m_data's buffer; drives AppendData's growth.
  int m_capacity = 0;
};

// A whole element in memory: its start tag, its end tag, and its content
// items (character data and nested elements) in document order. Items are
// shared through smart pointers; copying an element copies its subtree.
//
// Two numberings: a content index counts every item, a sub-element index
// counts element items only.
class NXXML_API XmlElement : public XmlContent {
 public:
  // Empty names, no content.
  // Elements live on the stack, as members, or on the heap held by NXSmartPtr (then never deleted by hand).
  XmlElement();
  // Both tags carry the name; neither is marked as named.
  explicit XmlElement(const unsigned short* name);
  explicit XmlElement(const char16_t* name) : XmlElement(reinterpret_cast<const unsigned short*>(name)) {}
  explicit XmlElement(const Obx_String& name);
  // A deep copy: no item is shared with other.
  // Linear in the size of the subtree.
  XmlElement(const XmlElement& other);
  // Merges: the start tag is assigned with its merging assignment, the end
  // tag's name copied, and deep copies of other's items appended after this
  // element's own. Self-assignment doubles the content. Clean() first for an
  // exact copy.
  // Linear in the size of other's subtree.
  XmlElement& operator=(const XmlElement& other);
  // Drops every item in order, then the tags.
  ~XmlElement() override;
  // Drops all items and removes the attributes; the names stay.
  // Linear in n.
  void Clean();

  // Type 8, the same as an error token: tell the two apart by dynamic type.
  XmlToken_t GetType() const override { return XT_ILLEGAL; }
  // The start tag, the items' images and the end tag; an element without
  // items renders as an empty-element tag.
  // Raises the tag assertions, and "AdIsEqualNoCase(m_stag.GetName(), m_etag.GetName())" when the names differ; linear in the subtree.
  Obx_String GetImage(XmlConverter* converter) const override;

  // The start tag: the element's name and attributes.
  XmlSTag& GetSTag() { return m_stag; }
  const XmlSTag& GetSTag() const { return m_stag; }
  // The end tag; its name must match the start tag's, ignoring case, when
  // the element is rendered.
  XmlETag& GetETag() { return m_etag; }
  const XmlETag& GetETag() const { return m_etag; }

  // Appends the element itself, shared. A null pointer is stored as a null
  // item, which the image does not accept.
  // Amortized constant, as every add; the element is shared, and changes to it show here.
  void AddSubElement(NXSmartPtr<XmlElement>& element);
  // Appends a deep copy of element.
  void AddSubElement(const XmlElement& element);
  // Appends a new empty element and returns it, shared, to be filled in place.
  // The element keeps one reference and the caller gets another.
  NXSmartPtr<XmlElement> AddSubElement(const Obx_String& name);
  NXSmartPtr<XmlElement> AddSubElement(const unsigned short* name);
  NXSmartPtr<XmlElement> AddSubElement(const char16_t* name) {
    return AddSubElement(reinterpret_cast<const unsigned short*>(name));
  }
  // Appends the item itself, shared; a null pointer as for AddSubElement.
  void AddCharData(NXSmartPtr<XmlCharData>& data);
  // Appends a plain copy of data.
  void AddCharData(const XmlCharData& data);
  // Appends a new item with the text and returns it, shared. Adjacent items
  // are never merged.
  NXSmartPtr<XmlCharData> AddCharData(const Obx_String& text);
  NXSmartPtr<XmlCharData> AddCharData(const unsigned short* text);
  NXSmartPtr<XmlCharData> AddCharData(const char16_t* text) {
    return AddCharData(reinterpret_cast<const unsigned short*>(text));
  }
  // Appends the time as GMT text "YYYY-MM-DD hh:mm:ss".
  NXSmartPtr<XmlCharData> AddTimeData(AdDateTime value);
  // Appends the decimal text of value.
  NXSmartPtr<XmlCharData> AddLongData(long value);

  // The number of content items of either kind.
  // With GetContentAsElement(i) it makes a linear loop; Content() and SubElements() are simpler.
  int GetContentCount() const { return static_cast<int>(m_content.size()); }
  // The number of element items; character data is not counted.
  // Linear in n.
  int GetNumberofSubElements() const;
  // The element at sub-element index n, or null when n is out of range.
  // Linear in n: a loop over GetSubElement(i) is quadratic; iterate SubElements() instead.
  NXSmartPtr<XmlElement> GetSubElement(int n) const;
  // The first element item whose start-tag name equals name, case-sensitive;
  // null when none does.
  // Linear in n.
  NXSmartPtr<XmlElement> GetSubElement(const unsigned short* name) const;
  NXSmartPtr<XmlElement> GetSubElement(const char16_t* name) const {
    return GetSubElement(reinterpret_cast<const unsigned short*>(name));
  }
  // The last element item whose start-tag name equals name, case-sensitive.
  // Linear in n.
  NXSmartPtr<XmlElement> GetLastSubElement(const unsigned short* name) const;
  NXSmartPtr<XmlElement> GetLastSubElement(const char16_t* name) const {
    return GetLastSubElement(reinterpret_cast<const unsigned short*>(name));
  }
  // The item at content index i if it is character data (an error token
  // counts), else null.
  // Constant, as GetContentAsElement and GetContentByIndex are.
  NXSmartPtr<XmlCharData> GetContentAsCharData(int i) const;
  // The item at content index i if it is an element, else null.
  NXSmartPtr<XmlElement> GetContentAsElement(int i) const;
  // Sets item to the item at content index i and returns 0 for character
  // data, 1 for an element. Returns 6 with item untouched when i is out of
  // range, and 6 with a console line when the slot holds neither.
  int GetContentByIndex(NXSmartPtr<XmlContent>& item, int i) const;

  // The start tag's name.
  const Obx_String& GetName() const { return m_stag.GetName(); }
  std::string GetNameUtf8() const { return m_stag.GetName().ToUtf8(); }

  // UTF-8 forms of the name-taking and text-taking calls above.
  // Both tags carry the UTF-8 name.
  explicit XmlElement(std::string_view name);
  NXSmartPtr<XmlElement> AddSubElement(std::string_view name);
  NXSmartPtr<XmlCharData> AddCharData(std::string_view text);
  // Case-sensitive, as the UTF-16 forms; linear in n.
  NXSmartPtr<XmlElement> GetSubElement(std::string_view name) const;
  NXSmartPtr<XmlElement> GetLastSubElement(std::string_view name) const;

  // The element's own text: its character-data items concatenated in
  // document order; the text inside sub-elements is not part of it.
  // Linear in n and the text.
  Obx_String GetText() const;
  std::string GetTextUtf8() const;
  // Replaces the element's character data by text: every character-data
  // item is dropped, and a non-empty text becomes one new item where the
  // first of them stood (at the end when there was none). Sub-elements and
  // attributes stay; items the caller still holds are left unchanged.
  // Linear in n; a failure leaves the element as it was.
  void SetText(const Obx_String& text);
  void SetText(std::string_view text);

  // Ranges for range-for, one step an item: every content item (null items
  // skipped), the sub-elements, and the sub-elements whose start-tag name
  // equals name ignoring case. A range borrows the element, which must
  // outlive the loop; items appended during a loop are visited, and
  // removing items ends it early.
  // for (XmlContent& item : e.Content()); for (XmlElement& sub : e.SubElements("rec")).
  XmlContentRange<XmlContent> Content() const;
  XmlContentRange<XmlElement> SubElements() const;
  XmlContentRange<XmlElement> SubElements(const Obx_String& name) const;
  XmlContentRange<XmlElement> SubElements(std::string_view name) const;

 protected:
  // The renderer of the images walks the items in place, without a
  // reference each.
  template <class Sink>
  friend class ImageRender;
  XmlSTag m_stag;
  XmlETag m_etag;
  std::vector<NXSmartPtr<XmlContent>> m_content;

 private:
  void DropContent();
};

// An iterator over an element's items of kind T (XmlContent: every item;
// XmlElement: the sub-elements, of one name when a name is given). It keeps
// its index into the element's live content, so it never reads past it.
template <class T>
// Forward iterator; dereferencing gives the item borrowed from the element.
class XmlContentIterator {
 public:
  using iterator_category = std::forward_iterator_tag;
  using value_type = T;
  using difference_type = std::ptrdiff_t;
  using pointer = T*;
  using reference = T&;

  XmlContentIterator() = default;
  XmlContentIterator(const std::vector<NXSmartPtr<XmlContent>>& items, const Obx_String* name)
      : m_items(&items), m_name(name) {
    Settle();
  }
  T& operator*() const { return *m_current; }
  T* operator->() const { return m_current; }
  XmlContentIterator& operator++() {
    ++m_index;
    Settle();
    return *this;
  }
  XmlContentIterator operator++(int) {
    XmlContentIterator old = *this;
    ++*this;
    return old;
  }
  // Every iterator past the last match equals the end.
  bool operator==(const XmlContentIterator& other) const {
    return m_current == other.m_current && (m_current == nullptr || m_index == other.m_index);
  }
  bool operator!=(const XmlContentIterator& other) const { return !(*this == other); }

 private:
  void Settle() {
    m_current = nullptr;
    for (; m_index < m_items->size(); ++m_index)
      if ((m_current = Match((*m_items)[m_index].get()))) return;
  }
  T* Match(XmlContent* item) const {
    if constexpr (std::is_same<T, XmlContent>::value) {
      return item;
    } else {
      XmlElement* element = dynamic_cast<XmlElement*>(item);
      return element && m_name && !AdIsEqualNoCase(element->GetName(), *m_name) ? nullptr : element;
    }
  }

  const std::vector<NXSmartPtr<XmlContent>>* m_items = nullptr;
  const Obx_String* m_name = nullptr;
  std::size_t m_index = 0;
  T* m_current = nullptr;
};

// What XmlElement::Content and SubElements return; holds the name filter,
// so its iterators must not outlive it.
template <class T>
class XmlContentRange {
 public:
  explicit XmlContentRange(const std::vector<NXSmartPtr<XmlContent>>& items) : m_items(&items) {}
  XmlContentRange(const std::vector<NXSmartPtr<XmlContent>>& items, Obx_String name)
      : m_items(&items), m_name(std::move(name)), m_named(true) {}
  // Finds the first match: linear in the items it passes over.
  XmlContentIterator<T> begin() const { return XmlContentIterator<T>(*m_items, m_named ? &m_name : nullptr); }
  XmlContentIterator<T> end() const { return XmlContentIterator<T>(); }
  // Whether nothing matches; linear in n at worst.
  bool empty() const { return begin() == end(); }

 private:
  const std::vector<NXSmartPtr<XmlContent>>* m_items;
  Obx_String m_name;
  bool m_named = false;
};

inline XmlContentRange<XmlContent> XmlElement::Content() const { return XmlContentRange<XmlContent>(m_content); }
inline XmlContentRange<XmlElement> XmlElement::SubElements() const { return XmlContentRange<XmlElement>(m_content); }
inline XmlContentRange<XmlElement> XmlElement::SubElements(const Obx_String& name) const {
  return XmlContentRange<XmlElement>(m_content, name);
}

// ---------------------------------------------------------------------------
// Converter hooks.

// Rewrites names and attribute values on the way out (stream images) and
// attribute values on the way in (memory images); watches extracted tokens.
// The defaults change nothing except AttrStreamImage, which escapes the value
// as character data, so with the default converter an attribute value is
// escaped twice; converters that do not want that override it.
// Owned by the stream it is installed in unless that stream is told otherwise.
class NXXML_API XmlConverter {
 public:
  XmlConverter() = default;
  virtual ~XmlConverter();

  // Default: escapes value as character data.
  virtual void AttrStreamImage(const unsigned short* name, Obx_String& value);
  // Default: nothing. Called by the input stream for each attribute value read.
  virtual void AttrMemoryImage(const unsigned short* name, Obx_String& value);
  // The returned text must stay valid until the image has been built.
  virtual const unsigned short* AttrNameImage(const XmlSTag& tag, const unsigned short* name,
                                              const unsigned short* value);
  // Default: name itself. The text written for a tag name.
  virtual const unsigned short* TagNameImage(const unsigned short* name);
  // Default: nothing. Shown each token the input stream extracts.
  virtual void TokenMonitor(IXmlStream& stream, XmlToken& token);

  // Stores the flag and returns the previous value. The content model never
  // reads it; it is state for the streams' own converters.
  bool SetConvertFlag(bool flag) {
    const bool previous = m_convertFlag;
    m_convertFlag = flag;
    return previous;
  }
  // The flag SetConvertFlag stored (true at first).
  bool GetConvertFlag() const { return m_convertFlag; }

 protected:
  bool m_convertFlag = true;
};
