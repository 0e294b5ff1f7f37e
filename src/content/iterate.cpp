#include "xmlcontent.h"

// Dynamic tests, as the index-based queries make them: an error token is
// character data here too, and a user's subclass of either kind counts.
XmlElement* XmlContent::ToElement() { return dynamic_cast<XmlElement*>(this); }
const XmlElement* XmlContent::ToElement() const { return dynamic_cast<const XmlElement*>(this); }
XmlCharData* XmlContent::ToCharData() { return dynamic_cast<XmlCharData*>(this); }
const XmlCharData* XmlContent::ToCharData() const { return dynamic_cast<const XmlCharData*>(this); }
