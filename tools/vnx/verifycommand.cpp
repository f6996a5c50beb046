#include "verifycommand.h"

#include <filesystem>
#include <iostream>

#include "format.h"
#include "inspect.h"
#include "numberoption.h"
#include "objects.h"
#include "wrongcall.h"

namespace {
constexpr long kDeepest = 2048;  // half of a stack of 8 MiB
}

VerifyCommand::VerifyCommand(CLI::App& app)
    : command_(app.add_subcommand("verify", "Read all of a file under limits, and say whether it is good")) {
  command_->footer(
      "Objects of classes that are not known here are skipped, and so are values that only their writer can name; it "
      "is\n"
      "said how many bytes these are.");
  command_->add_option("file", file_, "A bitmap, an archive or a tool database, of any program");
  const auto limit = [this](const char* name, auto& value, const char* what, auto most) {
    addNumber(*command_, name, value, what, decltype(most){1}, most);
  };
  limit("--max-bytes", limits_.bytes, "Bytes that are read in all", qcArchiveLimits::kUnlimited);
  limit("--max-depth", limits_.nesting, "How deep objects may nest, 512 unless set", kDeepest);
  limit("--max-objects", limits_.objects, "Objects in all", qcArchiveLimits::kUnlimited);
  limit("--max-elements", limits_.elements, "Elements of vectors, texts and images in all",
        qcArchiveLimits::kUnlimited);
}

Exit VerifyCommand::run() const {
  if (file_.empty()) throw WrongCall("which file?");
  if (kindOf(file_) == FileKind::bitmap) {
    const auto size = static_cast<qcInt64>(std::filesystem::file_size(file_));
    if (size > limits_.bytes)
      throw FileError(file_, counted(size, "byte") + ", but at most " + std::to_string(limits_.bytes) + " allowed",
                      Fault::limit);
    const auto image = readBitmap(file_);
    std::cout << file_ << ": good: a bitmap of " << image.width() << " x " << image.height() << " px\n";
    return kGood;
  }
  const auto archive = onFile(file_, [&](const std::wstring&) { return openArchive(file_); });
  archive->limits(limits_);
  long objects = 0;
  qcInt64 opaque = 0;
  const auto tell = [&](const Entry& entry) {
    if (entry.kind == "object") ++objects;
    if (entry.kind == "opaque") opaque += entry.size;
    if (entry.kind != "fault") return;
    std::cerr << "vnx verify: " << file_ << ": at byte " << entry.at << ", " << entry.path << ':';
    for (const auto& [name, value] : entry.facts) std::cerr << ' ' << name << ' ' << value;
    std::cerr << '\n';
  };
  const Fault fault = onFile(file_, [&](const std::wstring&) { return inspect(*archive, file_, tell); });
  constexpr const char* kVerdicts[] = {"good: ", "not good: ", "not read whole: ", "not read whole: "};
  std::cout << file_ << ": " << kVerdicts[static_cast<int>(fault)] << counted(objects, "object") << "; "
            << counted(opaque, "byte") << " of which only their writer knows more"
            << (fault == Fault::content ? "; vnx db salvage saves what can be read" : "") << '\n';
  return exitOf(fault);
}
