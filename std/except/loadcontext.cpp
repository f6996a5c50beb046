#include "vnxstd/except/loadcontext.h"

std::string_view qf_LimitName(qcLoadContext::Limit limit) noexcept {
  switch (limit) {
    case qcLoadContext::Limit::none:
      break;
    case qcLoadContext::Limit::bytes:
      return "bytes";
    case qcLoadContext::Limit::nesting:
      return "nesting";
    case qcLoadContext::Limit::objects:
      return "objects";
    case qcLoadContext::Limit::elements:
      return "elements";
    case qcLoadContext::Limit::classes:
      return "classes";
  }
  return {};
}

std::string qcLoadContext::text() const {
  std::string text = position < 0 ? "at an unknown position" : "at byte " + std::to_string(position);
  for (std::size_t i = 0; i < path.size(); ++i) text.append(i == 0 ? ", in " : " > ").append(path[i]);
  const char* separator = ": ";
  const auto say = [&](const char* what, std::string_view which) {
    if (which.empty()) return;
    text.append(separator).append(what).append(which);
    separator = ", ";
  };
  if (limit != Limit::none) say("exceeds the limit of ", qf_LimitName(limit));
  say("expected ", expected);
  say("found ", found);
  return text;
}
