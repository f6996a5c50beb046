#include "json.h"

#include <vnxstd/archive/text.h>

#include "format.h"

std::string jsonText(std::string_view text) {
  std::string result = "\"";
  for (const char c : qf_Narrow(qf_WidenLossy(text))) {
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) {
      result += formatted("\\u%04x", static_cast<unsigned>(c));
    } else {
      if (c == '"' || c == '\\') result += '\\';
      result += c;
    }
  }
  return result + '"';
}
