// Files that are there whole or not at all: each is written under a name of its own, and takes the one that is wanted
// when all of it is on the medium.
#pragma once

#include <cstdio>
#include <filesystem>
#include <initializer_list>
#include <memory>
#include <string>

#include <vnxstd/dib/dib.h>

#include "files.h"

/// Throws WrongCall when two of the files of a call, which `what` says, are one; an empty name is none.
void requireDistinct(const char* what, std::initializer_list<std::string> files);

/// What becomes of a file that has the wanted name already.
enum class Existing { refused, replaced };

/// A file while it is written. Not for several threads.
class WholeFile {
 public:
  /// Makes an empty file beside the one that is wanted, under a name that was not in use, `path`.part or `path`.2.part
  /// and so on. Of a link the file is wanted that it leads to. A file that is to be replaced is held against other
  /// writers, as archives hold theirs, and passes on its permissions, and its owner and group where that is allowed; it
  /// must be writable. What exists but is no regular file cannot be replaced, and is written to as it is. Where `kept`
  /// is given, the file that is replaced gets that name, under which there must be nothing. Throws WrongCall when a
  /// name is taken, and FileError.
  WholeFile(const std::string& path, Existing existing, std::string kept = {});
  /// Removes what was written, unless it took the name.
  ~WholeFile();
  WholeFile(const WholeFile&) = delete;
  WholeFile& operator=(const WholeFile&) = delete;

  /// Where to write.
  const std::string& part() const { return part_; }
  /// Gives the file its name, once everything that writes to it is closed; at every moment there is the old file or the
  /// new one. Returns false, and leaves the file that there is alone, where that was to be kept and what was written is
  /// the same. Throws as the constructor does.
  bool finish();

 private:
  void create();

  std::string path_, part_, kept_;
  Existing existing_;
  std::unique_ptr<std::FILE, int (*)(std::FILE*)> held_;
  bool isMade_ = false;
};

/// Calls `work(part)`, which writes the file, with the name to write to, and returns what `finish` does. What fails
/// becomes a FileError of `path`.
template <class Work>
bool writeWhole(const std::string& path, Existing existing, Work work, const std::string& kept = {}) {
  try {
    WholeFile file(path, existing, kept);
    onFile(path, [&](const std::wstring&) { work(file.part()); });
    return file.finish();
  } catch (const std::filesystem::filesystem_error& error) {
    throw FileError(path, error.code().message(), Fault::medium);
  }
}

/// Copies a file, with its permissions but not setuid and setgid, to where `to` is written; its owner may write to it.
/// Throws FileError of `to`, or of `from` where that cannot be read.
void copyFile(const std::string& from, const std::string& part, const std::string& to);

/// Writes a text to a file, which it may replace.
void writeText(const std::string& path, const std::string& text);

/// Writes an image as a bitmap file, which it may replace.
template <class Pel>
void writeBitmap(const std::string& path, const qcPelBuffer<Pel>& image) {
  writeWhole(path, Existing::replaced, [&](const std::string& part) { qcDIB::writePelBuffer(qf_Widen(part), image); });
}
