#include <unicode/ustring.h>

#include <climits>

#include "convert/convert_private.h"
#include "nxmessages.h"

using namespace nxmsg;

Obx_String nxconvert::PlainUTF82CString(std::string_view text) {
  Obx_String result;
  if (text.empty()) return result;
  AD_ASSERT_TEXT(text.size() <= static_cast<std::size_t>(INT32_MAX), "text.size() <= INT32_MAX", kStreamUnit);
  const int32_t length = static_cast<int32_t>(text.size());
  // A UTF-8 text never needs more UTF-16 units than it has bytes.
  Obx_StdString& units = result.Std();
  units.resize(text.size());
  UErrorCode status = U_ZERO_ERROR;
  int32_t produced = 0;
  u_strFromUTF8WithSub(reinterpret_cast<UChar*>(&units[0]), length, &produced, text.data(), length, U_SENTINEL,
                       nullptr, &status);
  if (U_FAILURE(status)) AdThrowMsgExcept(kCannotDecodeMsgId, kCannotDecodeText, kStreamUnit, __LINE__);
  units.resize(static_cast<std::size_t>(produced));
  return result;
}
