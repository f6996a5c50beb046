#include "dumpcommand.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <optional>

#include "files.h"
#include "format.h"
#include "inspect.h"
#include "json.h"
#include "objects.h"
#include "wrongcall.h"

namespace {

constexpr qcInt64 kHexBytes = 256;  // of one entry

// Writes an entry a line, as text or as elements of one JSON document; nothing is kept.
class Printer {
 public:
  Printer(const std::string& file, const std::string& path, bool json, bool hex)
      : file_(file), path_(path), json_(json), hex_(hex), bytes_(file, std::ios::binary) {}

  void begin(const qcArchive* archive, qcInt64 bytes) {
    const char* order = archive && archive->ordering() == qcArchive::littleEndian ? "little-endian" : "big-endian";
    if (json_) {
      std::cout << "{\"file\": " << jsonText(file_) << ", \"bytes\": " << bytes;
      if (archive)
        std::cout << ", \"version\": " << archive->version() << ", \"order\": \"" << order
                  << "\", \"seekable\": " << (archive->isSeekable() ? "true" : "false");
      std::cout << ",\n\"entries\": [";
      return;
    }
    std::cout << file_ << ": ";
    if (archive) std::cout << (archive->isSeekable() ? "a seekable " : "a plain ") << order << " archive, ";
    std::cout << counted(bytes, "byte") << '\n';
  }

  void operator()(const Entry& entry) {
    if (entry.kind != "fault" && !isWanted(entry.path)) return;
    ++count_;
    errno = 0;
    if (json_)
      printJson(entry);
    else
      printText(entry);
    if (!std::cout) throw outputError();
  }

  void end(Fault fault) {
    constexpr const char* kStates[] = {"good", "malformed", "limit exceeded", "input failed"};
    if (json_) std::cout << "\n],\n\"state\": \"" << kStates[static_cast<std::size_t>(fault)] << "\"}\n";
  }
  long count() const { return count_; }
  /// That bytes could not be read that were to be shown.
  const std::optional<FileError>& failure() const { return failure_; }

 private:
  bool isWanted(const std::string& path) const {
    return path_.empty() || (path.starts_with(path_) && (path.size() == path_.size() || path[path_.size()] == '/'));
  }

  void printJson(const Entry& entry) {
    std::cout << (count_ == 1 ? "\n" : ",\n") << "{\"path\": " << jsonText(entry.path) << ", \"kind\": \"" << entry.kind
              << "\", \"at\": " << entry.at;
    if (entry.size != 0) std::cout << ", \"size\": " << entry.size;
    for (const auto& [name, value] : entry.facts) std::cout << ", \"" << name << "\": " << value;
    if (const std::string hex = hexOf(entry); !hex.empty()) std::cout << ", \"hex\": \"" << hex << '"';
    std::cout << '}';
  }

  void printText(const Entry& entry) {
    std::cout << formatted("%10lld  ", static_cast<long long>(entry.at)) << entry.path << ' ' << entry.kind;
    for (const auto& [name, value] : entry.facts) {
      std::cout << ' ';
      if (name != std::string("value")) std::cout << name << '=';
      std::cout << value;
    }
    if (entry.kind == "opaque" || entry.kind == "object")
      if (entry.size != 0) std::cout << " size=" << entry.size;
    if (const std::string hex = hexOf(entry); !hex.empty()) std::cout << " hex=" << hex;
    std::cout << '\n';
  }

  // The first bytes of an entry; those of an object and a header are those of its fields.
  std::string hexOf(const Entry& entry) {
    if (!hex_ || entry.at < 0 || entry.size <= 0 || entry.kind == "object" || entry.kind == "header") return {};
    std::string bytes(static_cast<std::size_t>(std::min(entry.size, kHexBytes)), '\0'), hex;
    try {
      bytes.resize(readAt(bytes_, entry.at, bytes.data(), bytes.size()));
    } catch (const qcArchive::BadFile& error) {  // within an entry, which is to be ended
      failure_ = errorOf(file_, error);
      return {};
    }
    for (const char byte : bytes) hex += formatted("%02X", static_cast<unsigned char>(byte));
    return hex;
  }

  std::string file_, path_;
  bool json_, hex_;
  std::ifstream bytes_;
  long count_ = 0;
  std::optional<FileError> failure_;
};

}  // namespace

DumpCommand::DumpCommand(CLI::App& app)
    : command_(app.add_subcommand("dump", "Show what lies in an archive or a tool database, byte for byte")) {
  command_->footer(
      "A line for each piece: its first byte, its path, its kind, and what it says. /0, /1 and so on are the objects "
      "of a\n"
      "plain archive, or the records of a seekable one with what lies between them; below an object come the names of\n"
      "the levels of its class, and below these the numbers of their fields: /0/qcCircle/1. Of a block of numbers the\n"
      "first 8 are shown, of an entry in hexadecimal the first 256 bytes. A fault is shown where it lies, behind all "
      "that\n"
      "could be read.");
  command_->add_option("file", file_, "An archive or a tool database, of any program");
  command_->add_flag("--json", json_, "One JSON document, with the same entries");
  command_->add_option("--path", path_, "Only what lies at this path and below it, such as /0/qcCircle");
  command_->add_flag("--hex", hex_, "The bytes, too");
}

Exit DumpCommand::run() const {
  if (file_.empty()) throw WrongCall("which archive?");
  if (!path_.empty() && (path_.front() != '/' || path_.back() == '/'))
    throw WrongCall("a path is one such as /0/qcCircle/1, not \"" + path_ + '"');
  requireReadable(file_);
  onFile(file_, [](const std::wstring&) {});  // has a name that the library takes
  Printer print(file_, path_, json_, hex_);
  Fault fault = Fault::none;
  bool begun = false;
  const auto refused = [&](Fault why, const Entry& entry) {
    fault = why;
    print.begin(nullptr, static_cast<qcInt64>(std::filesystem::file_size(file_)));
    print(entry);
  };
  try {
    requireKind(file_, FileKind::archive);
    const auto archive = openArchive(file_);
    print.begin(archive.get(), archive->remaining() + static_cast<std::streamoff>(archive->tell()));
    begun = true;
    fault = inspect(*archive, file_, std::ref(print));
  } catch (const qcException& error) {
    if (begun || faultOf(error) == Fault::medium) throw errorOf(file_, error);
    refused(faultOf(error), faultEntry("/", error, 0));
  } catch (const FileError& error) {
    if (begun) print.end(Fault::medium);
    if (begun || error.fault() == Fault::medium) throw;
    refused(error.fault(), faultEntry(error));
  }
  print.end(print.failure() ? Fault::medium : fault);
  if (print.failure()) throw *print.failure();
  if (fault != Fault::none) std::cerr << "vnx dump: " << file_ << ": not all could be read; the faults are shown\n";
  if (fault == Fault::none && print.count() == 0 && !path_.empty()) {
    std::cerr << "vnx dump: nothing found: no " << path_ << " in " << file_ << '\n';
    return kNotFound;
  }
  return exitOf(fault);
}
