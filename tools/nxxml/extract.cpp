// nxxml extract: the base64 text of an element decoded into a file. The
// bytes go to a temporary file beside the target, which takes its place
// only once everything was decoded: a failure leaves no partial file, and
// with --force the old file stays until the new one is whole.
#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <iostream>

#include "commands.h"
#include "nxmime.h"

namespace fs = std::filesystem;

namespace {

// Why the text of an element was not taken.
struct NotTaken {
  std::string why;
};

// Skips what is left of the element whose start tag was read, its end tag
// included.
void SkipRest(IXmlStream& in) {
  for (;;) {
    const XmlToken_t t = in.GetNextTokenType();
    if (t == XT_EOF) return;
    if (t == XT_STAG) {
      in.SkipElement();
    } else if (t == XT_ETAG) {
      XmlETag end;
      in >> end;
      return;
    } else {
      in.SkipToken();
    }
  }
}

// Decodes the text of the element whose start tag was just read. Throws
// NotTaken (file removed) when the element holds more than text or ends
// with the input; the utility's own failures pass through.
void DecodeHere(IXmlStream& in, const std::string& name, const Obx_String& file) {
  in.Mime64_Decode(file);
  const XmlToken_t t = in.GetNextTokenType();
  if (t == XT_ETAG) {
    XmlETag end;
    in >> end;
    return;
  }
  _tunlink(file);
  if (t == XT_EOF) throw NotTaken{"the input ends inside the element <" + name + ">"};
  throw NotTaken{"the element <" + name + "> holds elements, not base64 text alone"};
}

// At EOF: true when finishing the input gave more tokens.
bool MoreAtEnd(IXmlStream& in) { return in.Finish(); }

// The first element named name, anywhere.
std::string ExtractNamed(IXmlStream& in, const std::string& name, const Obx_String& file) {
  const Obx_String wanted = Obx_String::FromUtf8(name.c_str());
  for (;;) {
    const XmlToken_t t = in.GetNextTokenType();
    if (t == XT_EOF) {
      if (MoreAtEnd(in)) continue;
      return "no element <" + name + "> in the input";
    }
    if (t != XT_STAG) {
      in.SkipToken();
      continue;
    }
    XmlSTag tag;
    in >> tag;
    if (tag.GetName() != wanted) continue;
    try {
      DecodeHere(in, name, file);
      return std::string();
    } catch (const NotTaken& e) {
      return e.why;
    }
  }
}

// Tries the element whose start tag was read; false (and the element
// skipped) when its text is not base64, or empty and !acceptEmpty.
bool TryElement(IXmlStream& in, const std::string& name, const Obx_String& file, bool acceptEmpty) {
  try {
    DecodeHere(in, name, file);
  } catch (QmMsgException* e) {
    if (e->GetMessage(0).GetId() != AD_MIME_NOT_BASE64_MSGID) throw;
    e->Delete();
    SkipRest(in);
    return false;
  } catch (const NotTaken&) {
    SkipRest(in);
    return false;
  }
  if (acceptEmpty || CFile(file, CFile::modeRead).GetLength() > 0) return true;
  _tunlink(file);
  return false;
}

// The root itself when it holds nothing but text (as attach writes it),
// else the first element below the root (the first top-level one in
// embedded mode) whose text is base64 and not empty.
std::string ExtractFirst(IXmlStream& in, bool embedded, const Obx_String& file) {
  if (!embedded) {
    if (in.GetNextTokenType() != XT_STAG) return "the input holds no element";
    XmlSTag root;
    in >> root;
    const XmlToken_t t = in.GetNextTokenType();
    if (t == XT_CHARDATA || t == XT_ETAG) {
      if (TryElement(in, root.GetName().ToUtf8(), file, true)) return std::string();
      return "no element of the input holds base64 text";
    }
  }
  for (;;) {
    const XmlToken_t t = in.GetNextTokenType();
    if (t == XT_EOF) {
      if (MoreAtEnd(in)) continue;
      break;
    }
    if (t == XT_ETAG) break;  // the root's end
    if (t != XT_STAG) {
      in.SkipToken();
      continue;
    }
    XmlSTag child;
    in >> child;
    if (in.GetNextTokenType() != XT_CHARDATA) {
      SkipRest(in);
      continue;
    }
    if (TryElement(in, child.GetName().ToUtf8(), file, false)) return std::string();
  }
  return "no element of the input holds base64 text";
}

// The utility names the file it wrote, the temporary one; the user knows it
// by the name given.
std::string DescribeOutputError(QmMsgException* e, const Obx_String& temporary, const std::string& output) {
  if (e->GetMessageCount() != 1 || e->GetMessage(0).GetParam("%_ARG1_%") != temporary) return DescribeAndDelete(e);
  QmMessage message = e->GetMessage(0);
  e->Delete();
  message.SetParam("%_ARG1_%", Obx_String::FromUtf8(output.c_str()));
  return message.GetMessageText().ToUtf8();
}

// Creates an empty temporary file beside target, with the permissions a
// new file gets; its name, or empty (errno set).
std::string MakeTemporary(const std::string& target) {
  const fs::path path(target);
  std::string name = (path.has_parent_path() ? path.parent_path().string() + "/" : std::string()) + "." +
                     path.filename().string() + ".nxxml-XXXXXX";
  const int fd = ::mkstemp(&name[0]);
  if (fd < 0) return std::string();
  const mode_t mask = ::umask(0);
  ::umask(mask);
  ::fchmod(fd, 0666 & ~mask);
  ::close(fd);
  return name;
}

// Moves the finished file into place; without replace, an existing target
// (even one that appeared meanwhile) is kept and the move refused.
bool MoveIntoPlace(const std::string& from, const std::string& to, bool replace, std::string& error) {
  int rc = replace ? ::rename(from.c_str(), to.c_str())
                   : ::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE);
  // File systems without the no-replace move: a link refuses an existing
  // name just as well.
  if (rc != 0 && !replace && (errno == EINVAL || errno == ENOSYS)) {
    rc = ::link(from.c_str(), to.c_str());
    if (rc == 0) ::unlink(from.c_str());
  }
  if (rc == 0) return true;
  error = errno == EEXIST ? to + " exists; --force replaces it" : "cannot write " + to + ": " + Reason(errno);
  return false;
}

}  // namespace

void AddExtractOptions(CLI::App& command, ExtractOptions& options) {
  AddInputOptions(command, options.input);
  command.add_option("--element", options.element, "Name of the element whose text is decoded (default: the first "
                                                   "element below the root that holds base64 text)");
  command.add_option("-o,--output", options.output, "The file to write")->required();
  command.add_flag("--force", options.force, "Replace FILE when it exists");
}

int RunExtract(const ExtractOptions& options) {
  std::vector<Input> inputs;
  if (!ResolveInputs(options.input, inputs)) return kExitUsage;
  if (inputs.size() != 1) {
    std::cerr << "nxxml extract: several inputs are read as one input with --joined\n";
    return kExitUsage;
  }
  if (!options.element.empty() && !IsXmlName(options.element)) {
    std::cerr << "nxxml extract: --element takes an XML name: " << options.element << "\n";
    return kExitUsage;
  }
  if (options.output == "-") {
    std::cerr << "nxxml extract: -o takes a file name\n";
    return kExitUsage;
  }
  std::error_code ec;
  if (!options.force && fs::exists(fs::symlink_status(options.output, ec))) {
    std::cerr << "nxxml extract: " << options.output << " exists; --force replaces it\n";
    return kExitUsage;
  }
  const std::string temporary = MakeTemporary(options.output);
  if (temporary.empty()) {
    std::cerr << "nxxml extract: cannot write " << options.output << ": " << Reason(errno) << "\n";
    return kExitBad;
  }
  const Obx_String file = Obx_String::FromUtf8(temporary.c_str());

  std::string error;
  int status = kExitBad;
  try {
    std::unique_ptr<std::ifstream> keepAlive;
    std::unique_ptr<IXmlStream> in = OpenInput(inputs[0], options.input, keepAlive);
    in->SetMaxTokenSize(options.input.maxTokenSize);
    if (options.input.embedded) in->SetEmbeddedElementMode(1);
    error = options.element.empty() ? ExtractFirst(*in, options.input.embedded, file)
                                    : ExtractNamed(*in, options.element, file);
  } catch (QmMsgException* e) {
    if (InputUnreachable(e)) status = kExitUsage;
    error = DescribeOutputError(e, file, options.output);
  } catch (const InputError& e) {
    status = kExitUsage;
    error = e.what();
  }
  if (!error.empty()) {
    ::unlink(temporary.c_str());
    std::cerr << inputs[0].label << ": " << error << "\n";
    return status;
  }
  if (!MoveIntoPlace(temporary, options.output, options.force, error)) {
    ::unlink(temporary.c_str());
    std::cerr << "nxxml extract: " << error << "\n";
    return kExitBad;
  }
  std::cout << options.output << "\t"
            << CFile(Obx_String::FromUtf8(options.output.c_str()), CFile::modeRead).GetLength() << "\n";
  if (StandardOutputBroken("extract")) return kExitBad;
  return kExitOk;
}
