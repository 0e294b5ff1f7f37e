// Copying an input stream's tokens to an output stream.
#include "input/helper.h"
#include "output/render.h"
#include "xmlstream.h"

namespace {

// The input delivers character data whole while a token is being copied,
// and stops doing so however the copy ends.
class SingleToken {
 public:
  explicit SingleToken(IXmlStream& in) : m_flag(XmlHelper::Accumulate(in)) { m_flag = 1; }
  ~SingleToken() { m_flag = 0; }
  SingleToken(const SingleToken&) = delete;
  SingleToken& operator=(const SingleToken&) = delete;

 private:
  int& m_flag;
};

}  // namespace

IXmlStream& operator>>(IXmlStream& in, OXmlStream& out) {
  SingleToken single(in);
  if (!in.Parse_More()) return in;
  std::deque<XmlToken*>& tokens = XmlHelper::Tokens(in);
  XmlToken* head = tokens.front();
  XmlHelper::NeedTokenType(head, XT_ILLEGAL);
  // A token that cannot be written stays at the head of the input, which
  // still owns it.
  OXmlStreamHelper::WriteImage(out, *head, ImageRender::VIRTUAL);
  tokens.pop_front();
  delete head;
  return in;
}
