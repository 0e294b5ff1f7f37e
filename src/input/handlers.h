// The expat callbacks of the input stream, installed in one call.
#pragma once

#include <expat.h>

#include "xmlstream.h"

// Installs in parser the callbacks that turn its events into stream's
// tokens, with stream as their user data: start and end tags, character
// data, and the refusal of everything else (CDATA sections, a document type
// declaration, comments, processing instructions, declarations).
void InstallHandlers(XML_Parser parser, IXmlStream& stream);

// The parser's current line, column and byte index, as expat reports them;
// parser is one an input stream built.
void StoreParserPlace(void* parser, long long& line, long long& column, long long& byteIndex);
