// The archive stream: one operator that both stores and loads.
//
// `archive || value` writes the value to a storing archive and reads it from a loading one, so that a class states its
// layout once. docs/archive-format.md gives every byte. The archive sits on a stream buffer that the concrete archives
// (memory.h, file.h) supply. An archive is for one thread at a time.
//
// Reading never trusts what it reads: a vector grows as its elements arrive, nesting has a limit, and every failure is
// one of the errors nested in qcArchive, each with the source and line that raised it.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <ios>
#include <memory>
#include <streambuf>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "vnxstd/archive/compound.h"
#include "vnxstd/archive/handle.h"
#include "vnxstd/archive/limits.h"
#include "vnxstd/archive/persistent.h"
#include "vnxstd/archive/widths.h"
#include "vnxstd/except/exception.h"
#include "vnxstd/export.h"

class qcArchiveObserver;
class qc_ArchiveIndex;
class qc_Gate;
class qc_RecordAddition;
class qc_RecordChain;

/// The head of a record, as an archive holds it.
struct qcArchiveRecord {
  enum Kind : std::int32_t { reference = 0, inlined = 1, anchor = 2, mark = 3, pointer = 4, object = 5 };
  Kind kind = reference;
  long number = 0;   // of a mark; of others the identifier of the object, 0 for none
  qcInt64 at = 0;    // where the head begins; -1 where the medium has no positions
  qcInt64 size = 0;  // of the head
  qcInt64 body = 0;  // size of what follows the head and belongs to it, as far as the archive says
  bool removed = false;
};

class VNXSTD_EXPORT qcArchive {
 public:
  enum Direction : std::int32_t { loading = 0, storing = 1 };
  enum Ordering : std::int32_t { bigEndian = 0, littleEndian = 1 };
  /// A position in the stream, in bytes from its start.
  using Position = std::fpos<int>;
  /// Kinds of numbers, as observers are told of them.
  enum Number : unsigned char { boolean = 0, signedInteger = 1, unsignedInteger = 2, floating = 3 };

  /// The base of all archive errors: where the error was raised, or a free text with line 0.
  class VNXSTD_EXPORT Errors : public qcException {
   public:
    /// The source file that raised the error, or a free text.
    const std::wstring& file() const noexcept { return file_; }
    /// The line in that file; 0 means no line.
    std::int32_t line() const noexcept { return line_; }

   protected:
    Errors() = default;
    /// Bytes that are no valid UTF-8 are widened to replacement characters; null gives an empty text.
    Errors(const char* file, int line);
    Errors(const wchar_t* file, int line);
    void dispatchSerialize(qcArchive& archive) override;
    void serialize_(qcArchive& archive, unsigned char version);
    void message_(std::wostream& out) const override;

   private:
    std::wstring file_;
    std::int32_t line_ = 0;
  };

  // Each kind is made from the source file (or text) and the line that raise it.

  /// The data ended before the value did.
  class VNXSTD_EXPORT Eof : public qc_ErrorLeaf<Eof, Errors, 0x10000100> {
   public:
    using qc_ErrorLeaf::qc_ErrorLeaf;
  };
  /// A write failed, a string's payload was cut short, or the header's ordering byte is neither 0 nor 1.
  class VNXSTD_EXPORT BadBuffer : public qc_ErrorLeaf<BadBuffer, Errors, 0x10000101> {
   public:
    using qc_ErrorLeaf::qc_ErrorLeaf;
  };
  /// The header's seekable flag differs, a string lacks a valid mark, or an object is not of the class asked for.
  class VNXSTD_EXPORT BadType : public qc_ErrorLeaf<BadType, Errors, 0x10000102> {
   public:
    using qc_ErrorLeaf::qc_ErrorLeaf;
  };
  /// What was read makes no valid record or object, or a value to be stored does not fit its field.
  class VNXSTD_EXPORT BadContent : public qc_ErrorLeaf<BadContent, Errors, 0x10000103> {
   public:
    using qc_ErrorLeaf::qc_ErrorLeaf;
  };
  /// A referenced object or record is not in the archive.
  class VNXSTD_EXPORT NotFound : public qc_ErrorLeaf<NotFound, Errors, 0x10000104> {
   public:
    using qc_ErrorLeaf::qc_ErrorLeaf;
  };
  /// An entry that must be unique exists already.
  class VNXSTD_EXPORT Duplicate : public qc_ErrorLeaf<Duplicate, Errors, 0x10000105> {
   public:
    using qc_ErrorLeaf::qc_ErrorLeaf;
  };
  /// A type name is not in the registry, or names an abstract class.
  class VNXSTD_EXPORT UnknownType : public qc_ErrorLeaf<UnknownType, Errors, 0x10000106> {
   public:
    UnknownType() = default;
    UnknownType(const char* name, const char* file, int line);
    /// The type name that could not be resolved.
    const std::string& name() const noexcept { return name_; }
    void archiveFields(qcArchive& archive);

   protected:
    void message_(std::wostream& out) const override;

   private:
    std::string name_;
  };
  /// A class or record is of a newer version than this library knows.
  class VNXSTD_EXPORT UnknownVersion : public qc_ErrorLeaf<UnknownVersion, Errors, 0x10000107> {
   public:
    using qc_ErrorLeaf::qc_ErrorLeaf;
  };
  /// A file could not be opened, read or written.
  class VNXSTD_EXPORT BadFile : public qc_ErrorLeaf<BadFile, Errors, 0x10000109> {
   public:
    using qc_ErrorLeaf::qc_ErrorLeaf;
  };
  /// The header's format version is newer than this library knows.
  class VNXSTD_EXPORT UnknownArchiveVersion : public qc_ErrorLeaf<UnknownArchiveVersion, Errors, 0x1000010A> {
   public:
    using qc_ErrorLeaf::qc_ErrorLeaf;
  };
  /// An object is stored into an archive of the old format.
  class VNXSTD_EXPORT CannotWriteToOldArchive : public qc_ErrorLeaf<CannotWriteToOldArchive, Errors, 0x1000010B> {
   public:
    using qc_ErrorLeaf::qc_ErrorLeaf;
  };
  /// An operation that needs a seekable archive.
  class VNXSTD_EXPORT NotSeekable : public qc_ErrorLeaf<NotSeekable, Errors, 0x1000010C> {
   public:
    using qc_ErrorLeaf::qc_ErrorLeaf;
  };

  virtual ~qcArchive();
  qcArchive(const qcArchive&) = delete;
  qcArchive& operator=(const qcArchive&) = delete;

  bool isLoading() const noexcept { return direction_ == loading; }
  bool isStoring() const noexcept { return direction_ == storing; }
  bool isReadOnly() const noexcept { return readOnly_; }
  bool isSeekable() const noexcept { return seekable_; }
  /// The format version: 1 for everything that this library writes.
  long version() const noexcept { return version_; }
  Ordering ordering() const noexcept { return ordering_; }

  // Numbers, in archive order. long and unsigned long take four bytes everywhere: storing a value that does not fit
  // throws BadContent before a byte is written. float and double travel as their bit patterns. Reading past the end
  // throws Eof, a failed write BadBuffer.
  qcArchive& operator||(signed char& value);
  qcArchive& operator||(char& value);
  qcArchive& operator||(bool& value);
  qcArchive& operator||(unsigned short& value);
  qcArchive& operator||(short& value);
  qcArchive& operator||(unsigned int& value);
  qcArchive& operator||(int& value);
  qcArchive& operator||(unsigned long& value);
  qcArchive& operator||(long& value);
  qcArchive& operator||(unsigned long long& value);
  qcArchive& operator||(long long& value);
  qcArchive& operator||(float& value);
  qcArchive& operator||(double& value);

  // Texts. Narrow text is UTF-8, wide text the platform's wide characters, on the wire always UTF-16; either kind can
  // be read into the other. Narrow text that stays narrow travels byte for byte, whatever it holds; where text is
  // converted, qcBadUnicodeChar says that it is malformed. Storing more than 32767 bytes of narrow text or 32767 UTF-16
  // units throws BadContent before a byte is written.
  qcArchive& operator||(std::string& value);
  qcArchive& operator||(std::wstring& value);
  qcArchive& operator||(std::u32string& value);

  /// `n` bytes as they are. Throws Eof when fewer are left, BadBuffer when they cannot be written.
  void raw(char* data, long n);

  /// `count` numbers in archive order, byte for byte what `operator||` on each of them gives, moved as one block. T is
  /// a number of 1, 2, 4 or 8 bytes; not long or wchar_t, whose width differs between platforms.
  template <class T>
  void block(T* data, std::size_t count) {
    static_assert(std::is_arithmetic_v<T> && !std::is_same_v<std::remove_cv_t<T>, bool> && sizeof(T) <= 8,
                  "block moves plain numbers of up to 8 bytes");
    static_assert(!std::is_same_v<std::remove_cv_t<T>, long> && !std::is_same_v<std::remove_cv_t<T>, unsigned long> &&
                      !std::is_same_v<std::remove_cv_t<T>, wchar_t>,
                  "the width of long and wchar_t differs between platforms; use std::int32_t, qcInt64 or char32_t");
    words(const_cast<std::remove_cv_t<T>*>(data), count, sizeof(T), numberKind<std::remove_cv_t<T>>());
  }

  /// How many bytes the medium can still deliver to a loading archive, or -1 when it cannot tell. Throws like tell.
  qcInt64 remaining();

  /// Hands what was written to the medium, for good where the medium can promise that; throws BadBuffer or BadFile when
  /// it does not take it.
  virtual void sync();

  /// Turns a seekable archive from loading to storing or back, at the same position. Throws NotSeekable on another one
  /// and BadBuffer when a read-only archive is asked to store, both before anything is changed.
  void mode(Direction direction);
  /// Turns a seekable archive to storing and goes to the end of its data, over what an interrupted program has left
  /// unfinished there, unless it was turned to storing, or gone to in storing, where that begins or behind. Throws like
  /// mode.
  void append();

  /// The position, from the start of the archive's header on, and of a plain archive from the start of its stream
  /// buffer; -1 where the medium of a plain archive has none. In a seekable archive BadBuffer is thrown when the medium
  /// cannot tell it.
  Position tell();
  /// Throws NotSeekable on an archive that is not seekable, and BadBuffer when the position lies outside the data or
  /// the medium cannot go there.
  void seek(Position position);
  /// Moves by `offset` bytes from the start (0), the current position (1) or the end (2).
  void seek(long offset, int origin);

  // Skip 1, 2, 4 or 8 bytes: room for values that are filled in later. Storing leaves what is there as it is, and
  // writes zeros behind the end of the data.
  void reserve8();
  void reserve16();
  void reserve32();
  void reserve64();

  /// What loading from this archive may take from now on. What was read before does not count, nor what opening has
  /// read, which costs memory in proportion to the records that are there.
  const qcArchiveLimits& limits() const noexcept { return limits_; }
  void limits(qcArchiveLimits limits);

  /// For classes that read a count: counts it before anything is taken or made room for by it. Throws BadContent when
  /// it, or `bytesEach` bytes for each of them, goes beyond a limit.
  void countElements(qcUInt64 count, std::size_t bytesEach = 0) {
    if (count > elementsLeft_ || gate_) checkCount(count, bytesEach);
    elementsLeft_ -= count;
  }

  /// Whether objects and records stored from now on carry sizes and offsets of 8 bytes instead of 4, as those behind
  /// the first 2 GiB of a seekable archive do in any case. What begins before these needs it to be 4 GiB long or
  /// longer, or to refer to what lies beyond 4 GiB: without it such a store throws BadContent.
  void wideSizes(bool wide) noexcept;

  // The index of a seekable archive. Marks are places that applications number; objects are those stored by
  // storeObject, and those that a pointer has brought along which was stored at the end of the data and not within an
  // object; pointers are all such pointers. What lies within objects, objects stored by value, and other data between
  // them are not in the index. Opening an archive reads the heads of these records, whatever their size; finding one is
  // logarithmic in their number.
  //
  // A record is found once it is stored in full: an archive whose program was killed in between holds all that were
  // stored before, and what was stored before a sync that has returned survives a loss of power. Changing or removing a
  // mark, pointer or object is one step that has happened or has not. Each of these operations throws NotSeekable on an
  // archive that is not seekable. Those that change something throw BadBuffer when the archive is read-only; those that
  // add records throw BadBuffer when loading, within an object of the index, or not at the end of the data, and
  // BadContent when the chain of records is damaged. Those that read or change a record work on the one that begins at
  // the current position, in either direction, and throw NotFound when none begins there. Changes of numbers sync.

  /// The smallest and the largest number of a mark, and the next larger and smaller one; 0 for none.
  long firstMarkNum() const;
  long lastMarkNum() const;
  long nextMarkNum(long number) const;
  long prevMarkNum(long number) const;
  /// Where a mark lies; 0 for none.
  Position findMark(long number) const;
  /// Goes behind a mark, and gives its number.
  void skipMark();
  void readMark(long& number);
  /// Stores a mark and returns its number. With 0 it gets the first free number from the starting number on. Throws
  /// Duplicate for a number that is taken, BadContent for one below 0 or beyond 2^31 - 1.
  long writeNewMark(long number = 0);
  /// Gives a mark another number; the archive stays where it is. Throws like writeNewMark, and BadContent for 0.
  void renumberMark(long number);
  void removeMark();
  /// Where automatic numbers of marks begin, 1 unless set. Throws BadContent for a number below 1.
  void setStartingNum(long number);

  /// Stores a mark with the number of one that there is already, or of none: the older one has no number once this one
  /// is found. Throws like writeNewMark but for Duplicate, and BadContent for 0.
  void replaceMark(long number);

  /// Everything that is stored while one of these lives becomes part of the archive at once, by commit, or not at all:
  /// without it the data is cut off again, where the medium can be cut. Other data may be stored in between, at the
  /// end; nothing else is to be done with the archive meanwhile, and changing or removing records throws BadBuffer.
  /// Throws like writeNewMark, and BadBuffer inside another one that is not committed.
  class VNXSTD_EXPORT Transaction {
   public:
    explicit Transaction(qcArchive& archive);
    ~Transaction();
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;
    void commit();

   private:
    qcArchive& archive_;
    std::int32_t lastID_;  // before it began
    std::unique_ptr<qc_RecordAddition> records_;
  };

  /// The smallest identifier of an object, and the next larger one; 0 for none.
  long firstObjectID() const;
  long nextObjectID(long id) const;
  /// Where an object's record lies; 0 for none.
  Position findObject(long id) const;
  /// The identifier of an object, the size of its body in bytes and where the body lies. The archive stays where it is.
  /// The first form throws BadContent for a size that does not fit.
  void readObjectHeader(long& id, unsigned long& size, Position& body);
  void readObjectHeader64(long& id, qcUInt64& size, Position& body);
  /// The name of its class.
  std::string objectTypeName();
  /// A new object, which the caller owns; the archive is behind it afterwards. What it refers to and was loaded before
  /// is shared, references back lead to it. Throws what loading a pointer throws; the archive then stays where it was.
  qcPersistent* loadObject();
  /// Stores an object in full, whether or not it was stored before, and returns its identifier. Pointers stored later
  /// refer to it. Throws qcBadPointer for null.
  long storeObject(qcPersistent* object);
  /// References to it are NotFound from then on, so that objects that refer to it cannot be loaded; a pointer to it
  /// that is stored later brings it along anew.
  void removeObject();
  /// Identifiers given out from now on are at least this one.
  void setStartingID(long id);
  /// Forgets which objects were stored and loaded: what is stored from now on is stored in full, and what is loaded is
  /// loaded anew. Does nothing while an object is being stored or loaded.
  void forgetObjects() noexcept;

  /// Where the first pointer lies that was not removed, and the first such one behind the current position; 0 for none.
  Position firstPointerPos() const;
  Position nextPointerPos();
  /// The identifier of the object that a pointer refers to. The second form makes it refer to another object of the
  /// index; throws NotFound when there is none.
  long pointerObjectID();
  void pointerObjectID(long id);
  /// It reads as null from then on; the object that it brought along stays.
  void removePointer();

  /// Where a record begins that an interrupted program has not finished; 0 for none. The next append takes its place.
  Position unfinished() const;
  /// Where the chain of records is broken, as by damage to the medium; 0 when it is sound, and 2 when its beginning is
  /// lost. The index then holds what lies before that place, and nothing can be added.
  Position damaged() const;
  /// Reads the whole data behind that place and takes the records found there into the index; returns how many. Where
  /// the head of the whole chain is lost, it reads all.
  long salvage();
  /// Makes the chain sound again: it leads from each record of the index to the next, and records can be added. What
  /// salvage has not found is given up. It writes in many places, so that a program that is killed meanwhile can leave
  /// less than there was: it is for copies. Throws BadContent when the head of the chain is lost and there is no
  /// record.
  void relink();

  /// The heads of all records of the index in the order in which they lie, also of those that were removed; after
  /// salvage with those found.
  std::vector<qcArchiveRecord> records() const;

  /// Another archive that belongs with this one, such as one that holds what this one refers to. It is kept for those
  /// who ask; not owned.
  qcArchive* secondary() const;
  void secondary(qcArchive* archive);

  /// Who is told of what is read from now on (observer.h); null for nobody. Not owned. Reading is slower meanwhile, and
  /// as fast as ever without one.
  qcArchiveObserver* observer() const noexcept { return observer_; }
  void observer(qcArchiveObserver* observer);

  /// Whether `object` is being loaded by this archive at this moment. A reference to such an object closes a circle;
  /// classes whose members must form a tree or a chain refuse it, after loading a member, with BadContent.
  bool isStillLoading(const qcPersistent* object) const noexcept;
  /// For classes whose functions call themselves along their members, to be called behind these: throws BadContent when
  /// more levels of objects than limits().nesting, or as many, lie below the object that is being stored or loaded,
  /// within it or by references.
  void checkDepth() const;

  /// For operators and classes that find what they have read wrong: gives `error` the place where this archive reads,
  /// the objects that are being loaded, and what was expected and found there, in a few words. It does nothing to an
  /// error that knows its place already, and when the archive is storing.
  ///
  ///     if (!(radius >= 0)) throw archive.located(qcArchive::BadContent("std/shapes/shapes", 3693), "a radius >= 0");
  ///
  /// Errors that leave an object which is being loaded get a place by themselves.
  template <class E>
  E&& located(E&& error, std::string_view expected = {}, std::string_view found = {}) const noexcept {
    explain(error, expected, found);
    return std::forward<E>(error);
  }

  /// Throws UnknownVersion from the given source and line when `version` is newer than `newest`. The second form says
  /// in the error where `archive` has read it; within objects, errors get their places anyway.
  static void checkVersion(unsigned char version, unsigned char newest, const char* file, int line);
  static void checkVersion(const qcArchive& archive, unsigned char version, unsigned char newest, const char* file,
                           int line);

 protected:
  /// Stores the parameters; the stream is not touched before ctorFinished. `buffer` is not owned. A storing archive is
  /// never read-only.
  qcArchive(std::streambuf* buffer, Direction direction, Ordering ordering, bool seekable, bool readOnly);

  /// Writes or reads the two-byte header; the last thing that a derived constructor does. Throws NotSeekable when a
  /// seekable archive does not begin where its stream buffer does.
  void ctorFinished();
  /// Flushes, without throwing, and lets go of all objects held; the first thing that a derived destructor does.
  void dtorStarting() noexcept;

  std::streambuf* buffer() const noexcept { return buffer_; }
  /// To be called before the stream buffer is used other than through this archive: what was read ahead of it here is
  /// let go.
  void settle() noexcept;

  /// For archives that are not seekable and go in messages, each of which stands alone: forgets all objects, as
  /// forgetObjects does, and begins their identifiers anew. Does nothing while an object is being stored or loaded.
  void beginAnew() noexcept;

  /// Called before an object or a pointer outside of all others is stored, when nobody has to wait for it yet: time to
  /// hand on what was stored before. May throw.
  virtual void beforeObject() {}

  /// Drops what lies behind `end`; the put position is then anywhere. False when the medium cannot.
  virtual bool truncate(std::streamoff end);

 private:
  friend class qcPersistent;
  friend class qc_Areas;
  friend class qcArchiveCompound;
  friend class qc_ArchiveIndex;
  friend class qc_Gate;
  friend class qc_RecordAddition;
  friend class qc_RecordChain;
  friend VNXSTD_EXPORT qcArchive& operator||(qcArchive& archive, unsigned char& value);
  friend VNXSTD_EXPORT void* qf_SerializeTypedPointer(qcArchive& archive, qcPersistent* in,
                                                      void* (*cast)(qcPersistent*, const qcRepBase*&));
  friend VNXSTD_EXPORT void* qf_SerializeOwnedPointer(qcArchive& archive, qcPersistent* in,
                                                      void* (*cast)(qcPersistent*, const qcRepBase*&));

  void readHeader();
  void readBeyondArea(void* data, std::size_t count, int line);
  void explain(qcException& error, std::string_view expected = {}, std::string_view found = {},
               qcLoadContext::Limit limit = qcLoadContext::Limit::none, std::streamoff readSince = 0) const noexcept;
  [[noreturn]] void refuse(qcLoadContext::Limit limit, qcInt64 allowed) const;
  void checkCount(qcUInt64 count, std::size_t bytesEach);
  void openGate();
  template <class Load>
  decltype(auto) explained(Load load) const;

  class Hush;
  template <class Read, class Tell>
  bool observed(Read read, Tell tell);

  template <class T>
  static constexpr Number numberKind() noexcept {
    if (std::is_same_v<T, bool>) return boolean;
    if (std::is_floating_point_v<T>) return floating;
    return std::is_signed_v<T> && !std::is_same_v<T, char> ? signedInteger : unsignedInteger;
  }
  void words(void* data, std::size_t count, unsigned size, Number kind);
  template <class Bits>
  void number(Bits& bits, Number kind);
  template <class Bits>
  void fetch(Bits& bits, Number kind);
  template <class Bits, class T>
  qcArchive& bitsOf(T& value);
  template <class Bits, class T>
  qcArchive& checkedLong(T& value);
  void fill(unsigned count);

  std::size_t readPrefix();
  void writePrefix(std::size_t length);
  template <class Text>
  void readText(Text& text);
  void writeWideText(std::u16string_view text);

  std::ios_base::openmode side() const noexcept;
  std::streamoff offset();
  std::streamoff endOffset();
  void seekTo(std::streamoff position);
  void flush();
  qc_RecordChain& chain() const;

  std::streambuf* buffer_;
  bool readOnly_;
  Direction direction_;
  Ordering ordering_;
  bool swapBytes_;
  bool seekable_;
  unsigned char version_ = 1;
  std::streamoff highWater_ = 0;
  long compounds_ = 0;  // values that are being stored or loaded
  qcArchiveLimits limits_;
  qcUInt64 objectsLeft_ = qcArchiveLimits::kUnlimited;
  qcUInt64 elementsLeft_ = qcArchiveLimits::kUnlimited;
  qcArchive* secondary_ = nullptr;
  qcArchiveObserver* observer_ = nullptr;
  std::unique_ptr<qc_Gate> gate_;  // buffer_ while there is an observer
  std::unique_ptr<qc_ArchiveIndex> index_;
};

VNXSTD_EXPORT qcArchive& operator||(qcArchive& archive, unsigned char& value);

/// Whether a value can be copied: a vector says so of itself whatever it holds.
template <class T>
inline constexpr bool qc_isCopied = std::is_copy_constructible_v<T>;
template <class T>
inline constexpr bool qc_isCopied<std::vector<T>> = qc_isCopied<T>;

/// One-directional forms. They follow the archive's direction like `||` and do not check it. While loading, << reads
/// into a copy of `value`, or into a new T where there is none; a class with containers of owners must not claim one.
template <class T>
requires(!std::is_base_of_v<qcPersistent, T>) && requires(qcArchive& archive, T& value) { archive || value; }
qcArchive& operator<<(qcArchive& archive, const T& value) {
  if (archive.isStoring()) return archive || const_cast<T&>(value);  // storing changes nothing
  if constexpr (qc_isCopied<T>) {
    T ignored = value;
    return archive || ignored;
  } else {
    T ignored;
    return archive || ignored;
  }
}
template <class T>
requires(!std::is_base_of_v<qcPersistent, T>) && requires(qcArchive& archive, T& value) { archive || value; }
qcArchive& operator>>(qcArchive& archive, T& value) { return archive || value; }

/// Gives an object as the class that a handle wants, and its count, or null for an object of another class.
using qc_PointerCast = void* (*)(qcPersistent* object, const qcRepBase*& count);

/// Stores `in`, or loads a pointer to an object that `cast` accepts and returns it as that class, with one count taken
/// for the handle that adopts it.
VNXSTD_EXPORT void* qf_SerializeTypedPointer(qcArchive& archive, qcPersistent* in, qc_PointerCast cast);

/// A shared object: stored once, however many handles refer to it, and shared again when loaded. Loading throws
/// qcArchive::BadType when the object is no T; the handle is unchanged by a load that throws. An archive keeps no
/// object alive: once the last handle onto it is gone, a reference to it that follows is qcArchive::NotFound in a plain
/// archive. A seekable one loads it anew.
template <class Handle>
requires requires(const Handle& handle) {
  typename Handle::element_type;
  Handle(handle.rep(), qc_AdoptCount());
}
qcArchive& operator||(qcArchive& archive, Handle& handle) {
  using Object = std::remove_const_t<typename Handle::element_type>;
  void* object = qf_SerializeTypedPointer(archive, const_cast<Object*>(handle.rep()),
                                          [](qcPersistent* loaded, const qcRepBase*& count) -> void* {
                                            auto* typed = dynamic_cast<Object*>(loaded);
                                            count = typed;
                                            return typed;
                                          });
  if (archive.isLoading()) handle = Handle(static_cast<Object*>(object), qc_AdoptCount());
  return archive;
}

/// The same for an object that has one owner: it is stored in full each time, and always comes back as an object of its
/// own, which nothing else in the archive can refer to. It is not in the index.
VNXSTD_EXPORT void* qf_SerializeOwnedPointer(qcArchive& archive, qcPersistent* in, qc_PointerCast cast);

/// An object of which nobody else has a part; may be null. Loading throws qcArchive::BadType when the object is no T;
/// the owner is unchanged by a load that throws.
template <class T>
requires std::is_base_of_v<qcPersistent, T> qcArchive& operator||(qcArchive& archive, std::unique_ptr<T>& owner) {
  void* object = qf_SerializeOwnedPointer(
      archive, owner.get(), [](qcPersistent* loaded, const qcRepBase*&) -> void* { return dynamic_cast<T*>(loaded); });
  if (archive.isLoading()) owner.reset(static_cast<T*>(object));
  return archive;
}

/// One element of a vector; those of std::vector<bool> are not objects of their own.
template <class T>
void qf_SerializeElement(qcArchive& archive, T& element) {
  archive || element;
}
inline void qf_SerializeElement(qcArchive& archive, std::vector<bool>::reference element) {
  bool value = element;
  archive || value;
  if (archive.isLoading()) element = value;
}

/// A pair: its two parts, one after the other.
template <class A, class B>
qcArchive& operator||(qcArchive& archive, std::pair<A, B>& pair) {
  archive || pair.first;
  const qcArchiveCompound compound(archive);
  archive || pair.second;
  return archive;
}

/// A vector: a 32-bit count, then the elements. Memory grows with the elements that arrive, never with the count alone.
/// A vector of more than 2^32 - 1 elements throws BadContent; so does one whose first 1024 / sizeof(T) + 1 elements
/// take no bytes, if it has more. Loading replaces the vector; one that throws midway leaves the elements that have
/// arrived.
template <class T>
qcArchive& operator||(qcArchive& archive, std::vector<T>& values) {
  constexpr bool isBlock = std::is_arithmetic_v<T> && !std::is_same_v<T, bool> && !std::is_same_v<T, long> &&
                           !std::is_same_v<T, unsigned long>;
  constexpr std::size_t kBelieved = 1024 / sizeof(T) + 1;  // elements that are made room for before they arrive
  if (archive.isStoring() && values.size() > UINT32_MAX) throw qcArchive::BadContent("archive", 1301);
  auto count = static_cast<std::uint32_t>(values.size());
  archive || count;
  const qcArchiveCompound compound(archive);
  // When they are loaded, elements without bytes would make any count good.
  const auto start = !isBlock && count > kBelieved ? archive.tell() : qcArchive::Position(-1);
  const auto checkBytes = [&](std::size_t done) {
    if (done == kBelieved && start != qcArchive::Position(-1) && archive.tell() == start)
      throw archive.located(qcArchive::BadContent("archive", 1302), "elements that take bytes", "none");
  };
  if (archive.isStoring()) {
    if constexpr (isBlock) {
      archive.block(values.data(), count);
    } else {
      std::size_t done = 0;
      for (auto&& value : values) {
        qf_SerializeElement(archive, value);
        checkBytes(++done);
      }
    }
    return archive;
  }
  archive.countElements(count, isBlock ? sizeof(T) : 0);
  std::size_t step = std::min<std::size_t>(count, kBelieved);
  if constexpr (isBlock) {
    // What the medium holds can be made room for at once. A vector that has it already is filled as it is.
    if (count > kBelieved && archive.remaining() / static_cast<qcInt64>(sizeof(T)) >= static_cast<qcInt64>(count)) {
      step = count;
    }
  }
  if (values.size() > step) values.resize(step);
  std::size_t arrived = 0;
  try {
    for (std::size_t done = 0; done < count; done += step) {
      step = std::min(count - done, std::max(step, done));
      if (values.size() < done + step) values.resize(done + step);
      if constexpr (isBlock) {
        archive.block(values.data() + done, step);
        arrived += step;
      } else {
        for (std::size_t i = done; i < done + step; ++i) {
          auto&& value = values[i];
          qf_SerializeElement(archive, value);
          checkBytes(++arrived);
        }
      }
    }
  } catch (...) {
    values.resize(std::min(values.size(), arrived));
    throw;
  }
  return archive;
}
