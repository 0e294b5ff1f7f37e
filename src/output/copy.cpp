// Copying an input stream's tokens to an output stream, through the public
// operations of both.
#include "xmlstream.h"

IXmlStream& operator>>(IXmlStream& in, OXmlStream& out) {
  // The token comes whole (all of a text), or a queued error is raised.
  XmlToken* token = in.GetNextToken();
  if (!token) return in;
  try {
    out << *token;
  } catch (...) {
    // A token that cannot be written goes back to the head of the input,
    // which owns it again.
    in.PushXmlToken(token);
    throw;
  }
  delete token;
  return in;
}
