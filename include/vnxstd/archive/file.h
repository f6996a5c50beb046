// Archives in files.
#pragma once

#include <memory>
#include <string>

#include "vnxstd/archive/archive.h"
#include "vnxstd/export.h"

/// An archive in a file.
class VNXSTD_EXPORT qcFileArchive : public qcArchive {
 public:
  /// Opens the file in binary mode: storing truncates it, loading with `readOnly` opens it for input alone, and loading
  /// without for input and output. When loading, the order comes from the header. Throws BadFile with the text
  /// "Could not open file: " and the path when the file cannot be opened, and the errors of a bad header.
  ///
  /// Whoever may write holds the file: opening it a second time other than read-only, in this process or another,
  /// throws BadFile with the text "File is in use: " and the path, before anything is truncated. Programs that are no
  /// archives can still write to it. Where the file system has no locks there are none. Who reads beside a writer has
  /// the records that were whole on opening, and opens anew for later ones.
  qcFileArchive(const std::wstring& path, Direction direction, Ordering ordering = littleEndian, bool seekable = false,
                bool readOnly = false);
  /// Loads from a file that is not seekable and need not be writable.
  explicit qcFileArchive(const std::wstring& path) : qcFileArchive(path, loading, littleEndian, false, true) {}
  /// Closes the file. A failure to write what is still buffered is lost here: close() or sync() reports it.
  ~qcFileArchive() override;

  /// Writes what is buffered and closes the file; throws BadFile or BadBuffer when the medium refuses. The archive
  /// takes no further data afterwards. Closing twice does nothing.
  void close();

  /// Returns when the system reports that the data is on the medium. After a failure, here or in any other write, the
  /// archive takes no more data: what has reached the medium is unknown then. What has can still be read.
  void sync() override;

 protected:
  bool truncate(std::streamoff end) override;

 private:
  class Stream;
  qcFileArchive(std::unique_ptr<Stream> stream, Direction direction, Ordering ordering, bool seekable, bool readOnly);

  std::unique_ptr<Stream> stream_;
};
