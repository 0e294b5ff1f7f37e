// Task 2: change values (the packet's version, every quantity) and write the
// packet back to a file.
#include <fstream>
#include <iostream>
#include <string>

#include <xmlstream.h>

int main(int argc, char** argv) {
  if (argc != 3) return std::cerr << "usage: update_values IN OUT\n", 2;
  std::ifstream file(argv[1], std::ios::binary);
  IXmlStream in(file);
  XmlElement packet;
  in >> packet;
  packet.GetSTag().SetLongAttr("version", packet.GetSTag().GetLongAttr("version") + 1);
  for (XmlElement& record : packet.SubElements("record"))
    for (XmlElement& qty : record.SubElements("qty")) qty.SetText(std::to_string(std::stol(qty.GetTextUtf8()) * 2));
  OXmlStream out(argv[2], 0, 0);
  out << packet;
}
