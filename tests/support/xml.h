// A reader of XML, as strict as the tests of drawings need.
#pragma once

#include <map>
#include <regex>
#include <string>
#include <vector>

namespace xml {

/// How often each element occurs, under its name and, with a class, under name.class as well. Empty when the text is
/// not well-formed: a tag that is not closed, a bare ampersand, an attribute without quotes, bytes that are not UTF-8
/// or are control characters.
inline std::map<std::string, int> elements(const std::string& text) {
  static const std::regex kTag(R"(<(/?)([A-Za-z]+)((?:\s+[A-Za-z:-]+="[^"<]*")*)\s*(/?)>)"),
      kClass("class=\"([^\"]*)\""), kBare("&(?!(?:amp|lt|gt|quot);)|[\\x01-\\x08\\x0b-\\x1f\\x7f]");
  std::map<std::string, int> counts;
  std::vector<std::string> open;
  std::size_t at = text.find("?>");
  if (!text.starts_with("<?xml ") || at == std::string::npos) return {};
  for (at += 2;;) {
    const std::size_t tag = text.find('<', at);
    const std::string between = text.substr(at, tag == std::string::npos ? tag : tag - at);
    if (std::regex_search(between, kBare) || (open.empty() && between.find_first_not_of(" \n") != std::string::npos))
      return {};
    if (tag == std::string::npos) break;
    const std::size_t end = text.find('>', tag);
    if (end == std::string::npos) return {};
    std::string whole = text.substr(tag, end + 1 - tag);
    for (std::size_t from = 0; (from = whole.find("=\"", from)) != std::string::npos;) {
      const std::size_t to = whole.find('"', from += 2);  // long values are too much for recursion over every character
      if (to != std::string::npos && to - from > 100) whole.erase(from + 50, to - from - 50);
    }
    std::smatch match;
    if (!std::regex_match(whole, match, kTag) || std::regex_search(whole, kBare)) return {};
    const std::string name = match[2];
    at = end + 1;
    if (match[1].length() > 0) {
      if (open.empty() || open.back() != name) return {};
      open.pop_back();
      continue;
    }
    ++counts[name];
    const std::string attributes = match[3];
    std::smatch kind;
    if (std::regex_search(attributes, kind, kClass)) ++counts[name + '.' + kind[1].str()];
    if (match[4].length() == 0) open.push_back(name);
  }
  return open.empty() ? counts : std::map<std::string, int>();
}

}  // namespace xml
