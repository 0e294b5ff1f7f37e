#include <cstdio>
#include <cstring>

#include <xmlcontent.h>
#include <xmlstream.h>

int main() {
  XmlSTag tag(NX_U16(u"packet"));
  tag.SetLongAttr(NX_U16(u"version"), 4, 1);
  NXSmartPtr<XmlSTag> shared(new XmlSTag(tag));
  const std::string image = shared->GetImage(nullptr).ToUtf8();
  std::printf("%s %s", NxXmlGetVersion(), image.c_str());
  return image == "<packet version=\"4\">\n" ? 0 : 1;
}
