#include <expat.h>

#include <cstring>

#include "input/helper.h"

namespace {

const char* const kUnit = "xmlstream";

IXmlStream* StreamOf(void* userData) { return static_cast<IXmlStream*>(userData); }

bool IsAscii(const char* s, std::size_t n) {
  for (std::size_t k = 0; k < n; ++k)
    if (static_cast<unsigned char>(s[k]) >= 0x80) return false;
  return true;
}

// Widens ASCII bytes. For such bytes decoding is the identity and neither
// the control-character escape (whose mark is not ASCII) nor the ASCII check
// can apply, so this gives what the full conversion gives, without its
// intermediate buffer.
void WidenAscii(const char* s, std::size_t n, Obx_StdString& out) {
  const std::size_t old = out.size();
  out.resize(old + n);
  for (std::size_t k = 0; k < n; ++k) out[old + k] = static_cast<unsigned char>(s[k]);
}

Obx_String DecodeName(const char* s, bool asciiOnly, bool lenient) {
  const std::size_t n = std::strlen(s);
  if (IsAscii(s, n)) {
    Obx_String result;
    WidenAscii(s, n, result.Std());
    return result;
  }
  return UTF82CString(s, asciiOnly, !lenient);
}

}  // namespace

void XmlHelper::StopParse(IXmlStream* stream) {
  stream->m_parseStopped = true;
  XML_StopParser(static_cast<XML_Parser>(stream->m_parser), XML_FALSE);
}

void XmlHelper::STagHandler(void* userData, const char* name, const char** atts) {
  IXmlStream* stream = StreamOf(userData);
  Guarded(stream, [&] {
    AD_ASSERT_TEXT(stream->m_lastCharDataEndedWithEscape == false,
                   "stream->m_lastCharDataEndedWithEscape == false", kUnit);
    if (++stream->m_depth > stream->m_maxElementDepth) {
      // Too deep to read safely: the reader meets the refusal at this tag,
      // and nothing after it is parsed, so a hostile nesting costs no memory.
      QmMessage message(27322);
      message.SetParam("%_ARG1_%", AdStr(stream->m_maxElementDepth));
      message.SetParam("%_LOCATION_%", stream->RenderCurrentLocation());
      stream->m_tokens.push_back(new XmlError(message.FullMsg()));
      StopParse(stream);
      return;
    }
    XmlSTag* tag = nullptr;
    try {
      tag = new XmlSTag(DecodeName(name, stream->m_asciiOnly, stream->m_lenientDecoding));
      for (int k = 0; atts[k]; k += 2) {
        Obx_String value = DecodeName(atts[k + 1], stream->m_asciiOnly, stream->m_lenientDecoding);
        Obx_String attrName = DecodeName(atts[k], stream->m_asciiOnly, stream->m_lenientDecoding);
        // Expat has already refused duplicate names, so every pair is new.
        tag->m_attributes.SetAt(std::move(attrName), std::move(value));
      }
    } catch (QmMsgException* e) {
      delete tag;
      AddErrorTokensToStream(e, stream);
      return;
    } catch (...) {
      delete tag;
      throw;
    }
    stream->m_source->StoreSourceLocation(tag->m_location);
    stream->m_tokens.push_back(tag);
    stream->m_newlineStripped = 0;
  });
}

void XmlHelper::ETagHandler(void* userData, const char* name) {
  IXmlStream* stream = StreamOf(userData);
  Guarded(stream, [&] {
    AD_ASSERT_TEXT(stream->m_lastCharDataEndedWithEscape == false,
                   "stream->m_lastCharDataEndedWithEscape == false", kUnit);
    --stream->m_depth;
    XmlETag* tag = nullptr;
    try {
      tag = new XmlETag(static_cast<const unsigned short*>(nullptr));
      tag->m_name = DecodeName(name, stream->m_asciiOnly, stream->m_lenientDecoding);
    } catch (QmMsgException* e) {
      delete tag;
      AddErrorTokensToStream(e, stream);
      return;
    } catch (...) {
      delete tag;
      throw;
    }
    stream->m_source->StoreSourceLocation(tag->m_location);
    stream->m_tokens.push_back(tag);
    stream->m_newlineStripped = 0;
  });
}

void XmlHelper::CharDataHandler(void* userData, const char* s, int len) {
  IXmlStream* stream = StreamOf(userData);
  Guarded(stream, [&] {
    Obx_String text;
    if (!stream->m_lastCharDataEndedWithEscape && IsAscii(s, static_cast<std::size_t>(len))) {
      WidenAscii(s, static_cast<std::size_t>(len), text.Std());
    } else {
      try {
        unsigned short* wide = nullptr;
        int size = 0;
        UTF82UTF16(stream->m_lastCharDataEndedWithEscape, s, len, stream->m_asciiOnly, !stream->m_lenientDecoding,
                   wide, size, stream->m_lastCharDataEndedWithEscape);
        AD_ASSERT_TEXT(wide != nullptr || size == 0, "encodedData != __null || encodedDataSize == 0", kUnit);
        text = Obx_String(wide, size);
        delete[] wide;
      } catch (QmMsgException* e) {
        AddErrorTokensToStream(e, stream);
        return;
      }
    }
    std::deque<XmlToken*>& tokens = stream->m_tokens;
    // Expat splits text at line ends, references and chunk ends; the pieces
    // join the text token still at the tail (an error token is never joined).
    if (!tokens.empty() && tokens.back()->GetType() == XT_CHARDATA) {
      static_cast<XmlCharData*>(tokens.back())->AppendData(text.GetData(), text.GetLength());
      return;
    }
    // The line feed that follows a tag belongs to the layout, not to the text.
    if (text.GetLength() > 0 && text[0] == 0x0A && !stream->m_newlineStripped) {
      text.Std().erase(0, 1);
      stream->m_newlineStripped = 1;
    }
    if (text.GetLength() == 0) return;
    XmlCharData* data = new XmlCharData(std::move(text));
    stream->m_source->StoreSourceLocation(data->m_location);
    tokens.push_back(data);
  });
}

void XmlHelper::DefaultHandler(void* userData, const char* s, int len) {
  IXmlStream* stream = StreamOf(userData);
  Guarded(stream, [&] {
    // Line breaks between elements are layout; anything else reaching this
    // handler (declaration, comment, processing instruction) is refused.
    if (len > 0 && (s[0] == '\r' || s[0] == '\n')) return;
    QmMessage message(27308);
    message.SetParam("%_LOCATION_%", stream->RenderCurrentLocation());
    AdThrowMsgExcept(message, "", kUnit, __LINE__);
  });
}

void XmlHelper::RaiseUnreached(void* userData) {
  IXmlStream* stream = StreamOf(userData);
  Guarded(stream, [] { AdThrowMsgExcept(QmMessage(AdGetHitUnreachedMsgID()), "", kUnit, __LINE__); });
}

void XmlHelper::StartCdataHandler(void* userData) { RaiseUnreached(userData); }
void XmlHelper::EndCdataHandler(void* userData) { RaiseUnreached(userData); }
void XmlHelper::StartDoctypeDeclHandler(void* userData, const char*, const char*, const char*, int) {
  RaiseUnreached(userData);
}
void XmlHelper::EndDoctypeDeclHandler(void* userData) { RaiseUnreached(userData); }

void XmlHelper::AddErrorTokensToStream(QmMsgException* e, IXmlStream* stream) {
  AD_ASSERT_TEXT(stream->m_source != nullptr, "stream->m_source != __null", kUnit);
  Obx_String trailer;
  trailer.LoadString(27318);
  trailer.Append(stream->RenderCurrentLocation());
  Obx_String text;
  for (int k = 0; k < e->GetMessageCount(); ++k) text.Append(e->GetMessage(k).FullMsg());
  text.Append(trailer);
  e->Delete();
  stream->m_tokens.push_back(new XmlError(text));
}
