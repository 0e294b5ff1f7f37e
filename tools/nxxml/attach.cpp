// nxxml attach: a file as the base64 text of one element, written to
// standard output or to a series of files as copy writes them.
#include <cerrno>
#include <iostream>
#include <sstream>

#include "commands.h"

bool IsXmlName(const std::string& name) {
  if (name.empty() || name.find_first_of("<>&/'\" \t\r\n=") != std::string::npos) return false;
  std::istringstream text("<" + name + "/>");
  try {
    IXmlStream in(text);
    XmlElement element;
    in >> element;
    return in.End() && element.GetSTag().GetName() == Obx_String::FromUtf8(name.c_str());
  } catch (QmMsgException* e) {
    e->Delete();
    return false;
  }
}

void AddAttachOptions(CLI::App& command, AttachOptions& options) {
  command.add_option("FILE", options.file, "The file to attach")->required();
  command.add_option("--element", options.element, "Name of the element that holds the text")->required();
  AddSeriesOptions(command, options.series);
}

int RunAttach(const AttachOptions& options) {
  if (!IsXmlName(options.element)) {
    std::cerr << "nxxml attach: --element takes an XML name: " << options.element << "\n";
    return kExitUsage;
  }
  const Obx_String file = Obx_String::FromUtf8(options.file.c_str());
  // A file that cannot be read is said before any output exists.
  if (!CFile(file, CFile::modeRead).IsOpen()) {
    const int error = errno;
    std::cerr << "nxxml attach: cannot open " << options.file << ": " << Reason(error) << "\n";
    return kExitUsage;
  }
  int status = kExitBad;
  std::unique_ptr<OXmlStream> out = OpenSeries(options.series, {options.file}, "attach", status);
  if (!out) return status;

  const Obx_String name = Obx_String::FromUtf8(options.element.c_str());
  std::string failure;
  try {
    *out << XmlSTag(name);
    out->Mime64_Encode_File(file);
    *out << XmlETag(name);
    *out << NX_U16(u"\n");
  } catch (QmMsgException* e) {
    failure = DescribeAndDelete(e);
  } catch (XmlException* e) {
    e->Delete();
    failure = OutputFull(options.series);
  }
  // Half an attachment is of no use to anyone: a series that failed goes.
  return CloseSeries(*out, options.series, failure, kExitBad, true, "attach");
}
