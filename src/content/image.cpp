// The UTF-16 images of the tokens (GetImage), made by the one renderer into
// a UTF-16 sink, and the converter's default hooks.
#include "content/escape.h"
#include "content/render.h"
#include "xmlcontent.h"

namespace {

// Builds an image in one UTF-16 string: markup widened, text escaped as it
// is appended, a run of units that need nothing copied in one piece.
class Utf16Sink {
 public:
  void Markup(const char* ascii, std::size_t n) { m_out.append(ascii, ascii + n); }

  void Text(const unsigned short* units, std::size_t n, XmlEscape how) {
    if (how == XmlEscape::RAW) {
      m_out.append(units, n);
      return;
    }
    std::size_t run = 0;
    for (std::size_t i = 0; i < n; ++i) {
      const unsigned k = EscapeClass(how, units[i]);
      if (!k) continue;
      m_out.append(units + run, i - run);
      const XmlEscapeRow& row = nx_EMap[k - 1];
      m_out.append(row.text, row.text + row.length);
      run = i + 1;
    }
    m_out.append(units + run, n - run);
  }

  Obx_String Take() { return Obx_String(std::move(m_out)); }

 private:
  Obx_StdString m_out;
};

}  // namespace

Obx_String XmlETag::GetImage(XmlConverter* c) const {
  Utf16Sink sink;
  ImageRender<Utf16Sink>(sink, c).ETag(*this);
  return sink.Take();
}

Obx_String XmlSTag::GetImage(XmlConverter* c) const { return GetImage(NX_U16(u">"), c); }

Obx_String XmlSTag::GetImage(const unsigned short* terminator, XmlConverter* c) const {
  Utf16Sink sink;
  ImageRender<Utf16Sink>(sink, c).STag(*this, terminator, terminator ? static_cast<std::size_t>(_tcslen(terminator)) : 0);
  return sink.Take();
}

Obx_String XmlCharData::GetImage(XmlConverter*) const {
  Utf16Sink sink;
  ImageRender<Utf16Sink>(sink, nullptr).CharData(*this);
  return sink.Take();
}

Obx_String XmlElement::GetImage(XmlConverter* c) const {
  Utf16Sink sink;
  ImageRender<Utf16Sink>(sink, c).Element(*this);
  return sink.Take();
}

XmlConverter::~XmlConverter() = default;

void XmlConverter::AttrStreamImage(const unsigned short*, Obx_String& value) { escape_attr_value(false, value); }

void XmlConverter::AttrMemoryImage(const unsigned short*, Obx_String&) {}

const unsigned short* XmlConverter::AttrNameImage(const XmlSTag&, const unsigned short* name,
                                                  const unsigned short*) {
  return name;
}

const unsigned short* XmlConverter::TagNameImage(const unsigned short* name) { return name; }

void XmlConverter::TokenMonitor(IXmlStream&, XmlToken&) {}
