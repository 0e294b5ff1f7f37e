// Runs a call that should raise and reports what it raised, freeing the
// exception as every catcher must.
#pragma once

#include <string>

#include "nxmessages.h"

struct Raised {
  bool raised = false;
  long id = 0;
  std::string text;
  std::string file;
  std::string cpNum;
  std::string errorNum;
};

template <class F>
Raised RaisedBy(F&& call) {
  Raised r;
  try {
    call();
  } catch (QmMsgException* e) {
    r.raised = true;
    r.id = e->GetMessage(0).GetId();
    r.text = e->GetText().ToUtf8();
    r.file = e->GetFile();
    r.cpNum = e->GetMessage(0).GetParam("_CPNUM_").ToUtf8();
    r.errorNum = e->GetMessage(0).GetParam("_ERRORNUM_").ToUtf8();
    e->Delete();
  }
  return r;
}
