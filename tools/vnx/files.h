// The files that a command reads and writes: what goes wrong with them is said with their names.
#pragma once

#include <array>
#include <filesystem>
#include <fstream>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include <vnxstd/archive/text.h>
#include <vnxstd/except/exception.h>
#include <vnxstd/pelbuf/buffer.h>

/// What is wrong, from the least to the worst that a command tells apart: nothing, what a file holds, that it would
/// exceed a limit, or the medium.
enum class Fault { none, content, limit, medium };

/// What an error of the library says of the file that was being read or written.
Fault faultOf(const qcException& error);

/// Something is wrong with a file; the text begins with its name.
class FileError : public std::runtime_error {
 public:
  FileError(const std::string& path, const std::string& reason, Fault fault = Fault::content)
      : std::runtime_error(path + ": " + reason), reason_(reason), fault_(fault) {}
  /// What a place holds is not what belongs there.
  FileError(const std::string& path, const std::string& reason, qcLoadContext place)
      : std::runtime_error(path + ": " + reason + "; " + place.text()), reason_(reason), place_(std::move(place)) {}

  Fault fault() const { return fault_; }
  /// The text without the name of the file and the place.
  const std::string& reason() const { return reason_; }
  const std::optional<qcLoadContext>& place() const { return place_; }

 private:
  std::string reason_;
  Fault fault_ = Fault::content;
  std::optional<qcLoadContext> place_;
};

/// What the system says of an error number.
std::string causeText(int cause);

/// That standard output takes no more; the reason is in errno.
FileError outputError();

/// The message of an error on one line, with the system's reason where writing failed, with the place in the file, what
/// was expected there and what was found.
std::string textOf(const qcException& error);

/// The same as an error of a file. Of a bitmap that cannot be read it says how far reading came.
FileError errorOf(const std::string& path, const qcException& error);

/// Calls `work(path)` with the path as the library takes it; a failure becomes a FileError.
template <class Work>
auto onFile(const std::string& path, Work work) {
  std::wstring wide;
  try {
    wide = qf_Widen(path);
  } catch (const qcBadUnicodeChar&) {
    throw FileError(path, "the name is not UTF-8", Fault::medium);
  }
  try {
    return work(wide);
  } catch (const qcException& error) {
    throw errorOf(path, error);
  }
}

/// What is said of a file that cannot be read; the reason is in errno.
FileError unreadable(const std::string& path);

/// Reads as many bytes as there are at a place, at most `size`, and returns how many. Throws qcArchive::BadFile when
/// the medium fails.
std::size_t readAt(std::istream& from, qcInt64 at, void* bytes, std::size_t size);

/// Opens a file that is read once, from its start to its end, so that it may be a pipe. Throws a FileError with the
/// system's reason when it cannot be opened for reading or is a directory.
std::ifstream openedOnce(const std::string& path);

/// Throws a FileError when the file cannot be opened so, or is a device or a pipe.
void requireReadable(const std::string& path);

/// What a pointer in an archive begins with.
inline constexpr std::array<char, 3> kPointerTag{0x4F, char(0xE5), 0x70};

/// What a file is, by what it begins with; the first two bytes of an archive may be damaged. Throws a FileError that
/// says what was found in a file that is neither, and as requireReadable does.
enum class FileKind { bitmap, archive };
FileKind kindOf(const std::string& path);
/// Throws the same for a file of the other kind, too.
void requireKind(const std::string& path, FileKind wanted);

/// The image in a bitmap file, in grey, as one of the default pool. Throws FileError for any other file, too.
qcPelBuffer<unsigned char> readBitmap(const std::string& path);

/// Where a name leads, through links, to what exists or is yet to be made.
std::filesystem::path ledTo(const std::string& path);

/// Whether both names lead to one file, existing or yet to be made.
bool isSameFile(const std::string& a, const std::string& b);
