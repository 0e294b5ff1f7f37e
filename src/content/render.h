// The rules of every image, written once for any sink: the order of the
// converter's calls, where a start tag's inline text goes, the line feed
// after a start tag with attributes, the assertions, and which text is
// escaped how. The sink takes the pieces: the UTF-16 sink of GetImage
// (image.cpp), or the output stream's UTF-8 sink, which writes the same
// image straight as the bytes the stream would write for it.
//
// A Sink has
//   void Markup(const char* ascii, std::size_t n);   ASCII markup, as it is
//   void Text(const unsigned short* units, std::size_t n, XmlEscape how);
// and sees nothing of a failed image but what it was given before the
// raise: its owner discards it.
#pragma once

#include <cstddef>
#include <typeinfo>
#include <vector>

#include "content/escape.h"
#include "ids.h"
#include "xmlcontent.h"

template <class Sink>
class ImageRender {
 public:
  ImageRender(Sink& sink, XmlConverter* converter) : m_sink(sink), m_converter(converter) {}

  // What the token's virtual GetImage gives: the library's own classes are
  // rendered here, any other class by its own GetImage.
  void Token(const XmlToken& token) {
    // The type is asked first: it narrows the classes to one or two.
    const std::type_info& type = typeid(token);
    switch (token.GetType()) {
      case XT_CHARDATA:
        if (type == typeid(XmlCharData)) return CharData(static_cast<const XmlCharData&>(token));
        break;
      case XT_ILLEGAL:
        if (type == typeid(XmlElement)) return Element(static_cast<const XmlElement&>(token));
        break;
      case XT_STAG:
        if (type == typeid(XmlSTag)) return STag(static_cast<const XmlSTag&>(token), ">", 1);
        break;
      case XT_ETAG:
        if (type == typeid(XmlETag)) return ETag(static_cast<const XmlETag&>(token));
        break;
      default:
        break;
    }
    const Obx_String image = token.GetImage(m_converter);
    m_sink.Text(image.GetData(), static_cast<std::size_t>(image.GetLength()), XmlEscape::RAW);
  }

  // "</", the name, ">".
  void ETag(const XmlETag& tag) {
    const unsigned short* name = m_converter ? m_converter->TagNameImage(tag.GetName()) : tag.GetName().GetData();
    m_sink.Markup("</", 2);
    Name(name);
    m_sink.Markup(">", 1);
  }

  // "<", the name, each attribute as ` name="value"`, the terminator, a line
  // feed when there are attributes, then the inline text.
  void STag(const XmlSTag& tag, const unsigned short* terminator, std::size_t terminatorLength) {
    STag(tag, Terminator{nullptr, terminator, terminatorLength});
  }
  // The same closed by ASCII markup (">" or "/>").
  void STag(const XmlSTag& tag, const char* terminator, std::size_t terminatorLength) {
    STag(tag, Terminator{terminator, nullptr, terminatorLength});
  }

  // The text as character data.
  void CharData(const XmlCharData& text) {
    const Obx_String& data = text.GetData();
    m_sink.Text(data.GetData(), static_cast<std::size_t>(data.GetLength()), XmlEscape::CHARDATA);
  }

  // The start tag, every item in order, the end tag, with nothing between
  // them; without items, the start tag closed by "/>" alone.
  void Element(const XmlElement& element) {
    // Names read from a packet are equal as they stand; only others need
    // the case-insensitive comparison.
    const Obx_String& startName = element.m_stag.GetName();
    const Obx_String& endName = element.m_etag.GetName();
    AD_ASSERT_TEXT(startName == endName || AdIsEqualNoCase(startName, endName),
                   "AdIsEqualNoCase(m_stag.GetName(), m_etag.GetName())", nxmsg::kContentUnit);
    if (element.m_content.empty()) return STag(element.m_stag, "/>", 2);
    STag(element.m_stag, ">", 1);
    const std::vector<NXSmartPtr<XmlContent>>& items = element.m_content;
    for (std::size_t i = 0; i < items.size(); ++i) {
      // A tree read from a packet lies all over the heap: ask for the next
      // item while this one is rendered.
      if (i + 1 < items.size()) __builtin_prefetch(items[i + 1].get());
      const XmlContent* item = items[i].get();
      AD_ASSERT_TEXT(item != nullptr, "item != __null", nxmsg::kContentUnit);
      Token(*item);
    }
    ETag(element.m_etag);
  }

 private:
  // A start tag's terminator: ASCII markup, or UTF-16 units of the caller's.
  struct Terminator {
    const char* ascii;
    const unsigned short* units;
    std::size_t length;
  };

  void STag(const XmlSTag& tag, const Terminator& terminator) {
    const CMapStringToString& attributes = tag.GetAttributes();
    const int count = attributes.GetCount();
    const Obx_String& tagName = tag.GetName();
    const unsigned short* name = m_converter ? m_converter->TagNameImage(tagName) : tagName.GetData();
    m_sink.Markup("<", 1);
    Name(name);

    // The inline text goes after the tag but is rendered first, so that the
    // converter sees the calls in this order.
    Obx_String inlineImage;
    if (!tag.GetInlineText().IsEmpty()) {
      inlineImage = tag.GetInlineText();
      escape_attr_value(false, inlineImage);
      AD_ASSERT_TEXT(m_converter != nullptr, "cvrtr != __null", nxmsg::kContentUnit);
      m_converter->AttrStreamImage(tagName, inlineImage);
    }

    for (int k = 0; k < count; ++k) {
      const unsigned short* attrName = attributes.KeyAt(k);
      m_sink.Markup(" ", 1);
      if (m_converter) {
        // The stream hook may rewrite the value, and the name hook sees the
        // value so rewritten; the name it returns is used at once.
        Obx_String value = attributes.ValueAt(k);
        m_converter->AttrStreamImage(attrName, value);
        attrName = m_converter->AttrNameImage(tag, attrName, value);
        Attribute(attrName, value);
      } else {
        Attribute(attrName, attributes.ValueAt(k));
      }
    }
    if (terminator.ascii)
      m_sink.Markup(terminator.ascii, terminator.length);
    else
      m_sink.Text(terminator.units, terminator.length, XmlEscape::RAW);
    // A start tag with attributes ends its line; one without stays inline.
    // Readers rely on both: the line feed is absorbed as the first line end
    // after a tag.
    if (count > 0) m_sink.Markup("\n", 1);
    m_sink.Text(inlineImage.GetData(), static_cast<std::size_t>(inlineImage.GetLength()), XmlEscape::RAW);
  }

  // A tag name from the converter (or the tag itself), zero-terminated.
  void Name(const unsigned short* name) {
    AD_ASSERT_TEXT(AdIsNonEmpty(name), "AdIsNonEmpty(name)", nxmsg::kContentUnit);
    m_sink.Text(name, Length(name), XmlEscape::RAW);
  }

  void Attribute(const unsigned short* name, const Obx_String& value) {
    m_sink.Text(name, Length(name), XmlEscape::RAW);
    m_sink.Markup("=\"", 2);
    m_sink.Text(value.GetData(), static_cast<std::size_t>(value.GetLength()), XmlEscape::ATTRIBUTE);
    m_sink.Markup("\"", 1);
  }

  // The length of a zero-terminated name: names are short, a call costs more.
  static std::size_t Length(const unsigned short* s) {
    std::size_t n = 0;
    while (s[n]) ++n;
    return n;
  }

  Sink& m_sink;
  XmlConverter* m_converter;
};
