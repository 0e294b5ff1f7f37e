#include <nlohmann/json.hpp>

#include <iostream>

#include "commands.h"

namespace {

void PrintToken(const XmlToken& token) {
  nlohmann::ordered_json line;
  switch (token.GetType()) {
    case XT_STAG: {
      const XmlSTag& tag = static_cast<const XmlSTag&>(token);
      line["type"] = "start";
      line["name"] = tag.GetName().ToUtf8();
      nlohmann::ordered_json attributes = nlohmann::ordered_json::object();
      const CMapStringToString& map = tag.GetAttributes();
      for (int k = 0; k < map.GetCount(); ++k) attributes[map.KeyAt(k).ToUtf8()] = map.ValueAt(k).ToUtf8();
      line["attributes"] = attributes;
      break;
    }
    case XT_ETAG:
      line["type"] = "end";
      line["name"] = static_cast<const XmlETag&>(token).GetName().ToUtf8();
      break;
    default:
      line["type"] = "text";
      line["text"] = static_cast<const XmlCharData&>(token).GetData().ToUtf8();
      break;
  }
  long long lineNumber = 0, column = 0, byte = 0;
  token.GetLocation().Position(lineNumber, column, byte);
  line["line"] = lineNumber;
  line["column"] = column;
  line["byte"] = byte;
  std::cout << line.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) << '\n';
}

}  // namespace

int RunTokens(InputOptions options) {
  options.requireElement = false;
  return ReadEachInput(options, PrintToken, false);
}
