// Shared helpers of the output-stream tests.
#pragma once

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>
#include <type_traits>

#include "xmlstream.h"

// What f did: the bytes it returned (none for a void f), "!id text @unit"
// for the QmMsgException it raised or "!full" for an XmlException, freed.
template <class F>
std::string Capture(F f) {
  try {
    if constexpr (std::is_void_v<decltype(f())>) {
      f();
      return std::string();
    } else {
      return f();
    }
  } catch (QmMsgException* e) {
    const std::string raised =
        "!" + std::to_string(e->GetMessage(0).GetId()) + " " + e->GetFullText().ToUtf8() + " @" + e->GetFile();
    e->Delete();
    return raised;
  } catch (XmlException* e) {
    e->Delete();
    return "!full";
  }
}
