// Task 3: check a packet and report a malformed one with the place of the
// fault; the exit status says which it was.
#include <fstream>
#include <iostream>

#include <xmlstream.h>

int main(int argc, char** argv) {
  const char* name = argc > 1 ? argv[1] : "malformed.xml";
  std::ifstream file(name, std::ios::binary);
  IXmlStream in(file);
  try {
    XmlElement packet;
    in >> packet;
    in.Finish();  // a packet cut short is judged at its end
    std::cout << name << ": ok\n";
  } catch (QmMsgException* e) {
    std::cerr << name << ": " << e->GetFullText() << '\n';
    e->Delete();
    return 1;
  }
}
