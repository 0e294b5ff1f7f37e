// Task 4: build a packet from scratch and write it to standard output.
#include <iostream>

#include <xmlstream.h>

int main() {
  XmlElement packet("packet");
  packet.GetSTag().SetAttribute("site", "south");
  const char* names[] = {"Ana Lima", "Jürgen Weiß", "茶 & co"};
  for (long id = 1; id <= 3; ++id) {
    NXSmartPtr<XmlElement> record = packet.AddSubElement("record");
    record->GetSTag().SetLongAttr("id", id);
    record->AddSubElement("name")->SetText(names[id - 1]);
  }
  OXmlStream out(std::cout, 0);
  out << packet;
  std::cout << '\n';
}
