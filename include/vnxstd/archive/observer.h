// What an archive reads, told piece by piece: for programs that show archives rather than use them.
#pragma once

#include <cstddef>
#include <string_view>
#include <typeinfo>

#include "vnxstd/archive/archive.h"
#include "vnxstd/export.h"

/// Is told of everything that a loading archive reads while it is set (qcArchive::observer), in the order in which it
/// is read; of what is stored, skipped, or read at the position that a reference leads to, it is not told. Each call
/// comes when its piece has arrived: a load that fails has told of all before the fault, and ends neither the levels
/// nor the objects that it was in. What an observer throws comes out of the load like any other failure.
class VNXSTD_EXPORT qcArchiveObserver {
 public:
  /// Bytes of the archive; `at` is -1 where the medium has no positions.
  struct Span {
    qcInt64 at = 0;
    qcInt64 size = 0;
  };

  virtual ~qcArchiveObserver();

  /// Numbers of `size` bytes each: one by itself, a block, or plain bytes. They lie at `data` as the processor has
  /// them.
  virtual void numbers(Span span, qcArchive::Number kind, unsigned size, const void* data, std::size_t count);
  /// A text: UTF-8, or whatever bytes a narrow text has brought.
  virtual void text(Span span, std::string_view text);
  /// The head of a pointer. When its object follows, the object is told of next, unless it is known and is skipped.
  virtual void record(const qcArchiveRecord& record);
  /// An object begins with its marker, at `span`; the span's size reaches from there to the end of the object where the
  /// archive says it, and is 0 elsewhere.
  virtual void beginObject(Span span, const std::type_info& type);
  virtual void endObject();
  /// A level of the object's class, by its version byte. All levels begin before the fields of the first one follow,
  /// those of the level that began last; a level ends behind its fields.
  virtual void beginLevel(Span span, const std::type_info& level, unsigned char version);
  virtual void endLevel();
};
