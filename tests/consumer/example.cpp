// Marks every record of a packet as sent: reads the packet record by
// record, changes an attribute, writes it to a new file, and reports an
// error with its place in the input.
#include <cstdio>
#include <fstream>

#include <xmlstream.h>

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: example IN OUT\n");
    return 2;
  }
  std::ifstream file(argv[1], std::ios::binary);
  try {
    IXmlStream in(file);  // raises when the file cannot be read
    OXmlStream out(Obx_String::FromUtf8(argv[2]), 0, 1);  // one file, no size limit

    XmlSTag packet;
    packet(NX_U16(u"packet"));  // named: any other root is an error
    in >> packet;
    out << packet;
    while (in.GetNextTokenType() == XT_STAG) {
      XmlElement record;
      in >> record;  // the whole record with its subtree
      record.GetSTag().SetAttribute(NX_U16(u"op"), NX_U16(u"sent"), 1);
      out << record;
    }
    XmlETag end;
    end(NX_U16(u"packet"));
    in >> end;
    in.Finish();  // anything after the root is an error too
    out << end;
    out.Close();
  } catch (QmMsgException* e) {
    // The text names the place: "... at line 2, column 29, byte 38 ...".
    std::fprintf(stderr, "%s: %s\n", argv[1], e->GetFullText().ToUtf8().c_str());
    e->Delete();
    return 1;
  }
  return 0;
}
