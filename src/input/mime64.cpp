#include "output/mime64.h"

IXmlStream& IXmlStream::Mime64_Decode(const unsigned short* fileName) {
  AdXmlMimeStreamHelper helper(this);
  AdMimeUtil util;
  util.DecodeStreamToFile(helper, fileName);
  return *this;
}
