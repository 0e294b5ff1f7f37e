// Task 1: read the records of a packet and print their attributes and the
// texts of their fields.
#include <fstream>
#include <iostream>

#include <xmlstream.h>

int main(int argc, char** argv) {
  std::ifstream file(argc > 1 ? argv[1] : "packet.xml", std::ios::binary);
  IXmlStream in(file);
  XmlElement packet;
  in >> packet;
  for (XmlElement& record : packet.SubElements("record")) {
    for (auto [name, value] : record.GetSTag().Attributes()) std::cout << name << '=' << value << ' ';
    std::cout << '\n';
    for (XmlElement& field : record.SubElements()) std::cout << "  " << field.GetName() << ": " << field.GetText() << '\n';
  }
}
