#include "json.h"

#include <algorithm>

#include <vnxstd/archive/text.h>

#include "format.h"

namespace {

// Controls, ends of lines, and what no text has.
bool isUnprinted(wchar_t c) {
  return c < 0x20 || (c >= 0x7F && c < 0xA0) || c == 0x2028 || c == 0x2029 || c == 0xFFFE || c == 0xFFFF;
}

}  // namespace

std::string jsonText(std::string_view text) {
  std::wstring result = L"\"";
  for (const wchar_t c : qf_WidenLossy(text)) {
    if (isUnprinted(c)) {
      result += qf_Widen(formatted("\\u%04x", static_cast<unsigned>(c)));
    } else {
      if (c == L'"' || c == L'\\') result += L'\\';
      result += c;
    }
  }
  return qf_Narrow(result + L'"');
}

std::string lineText(std::string_view text) {
  std::wstring line = qf_WidenLossy(text);
  std::replace_if(line.begin(), line.end(), isUnprinted, L'?');
  return qf_Narrow(line);
}
