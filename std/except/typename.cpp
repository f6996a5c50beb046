#include "vnxstd/except/typename.h"

#include <cctype>
#include <cstdlib>
#include <memory>
#include <string_view>

#if __has_include(<cxxabi.h>)
#include <cxxabi.h>
#endif

namespace {

const qc_ErrorRegistration<qcDevEnv::Errors, qcDevEnv::UserCancelled> registered;

std::string demangled(const char* name) {
#if __has_include(<cxxabi.h>)
  int status = 0;
  const std::unique_ptr<char, void (*)(void*)> text(abi::__cxa_demangle(name, nullptr, nullptr, &status), std::free);
  if (status == 0 && text) return text.get();
#endif
  return name;
}

bool isWordChar(char c) { return std::isalnum(static_cast<unsigned char>(c)) || c == '_'; }

bool isKeyword(std::string_view word) {
  return word == "class" || word == "struct" || word == "enum" || word == "union";
}

}  // namespace

std::string qcDevEnv::canonicalTypeName(const char* platformName) {
  if (!platformName) return {};
  const std::string text = demangled(platformName);
  // Words are kept, with one space between two that follow each other; everything else is closed up.
  std::string name;
  for (std::size_t i = 0; i < text.size();) {
    if (!isWordChar(text[i])) {
      if (text[i] != ' ') name.push_back(text[i]);
      ++i;
      continue;
    }
    std::size_t end = i;
    while (end < text.size() && isWordChar(text[end])) ++end;
    const std::string_view word(text.data() + i, end - i);
    i = end;
    if (isKeyword(word)) continue;
    if (!name.empty() && isWordChar(name.back())) name.push_back(' ');
    name.append(word);
  }
  return name;
}
