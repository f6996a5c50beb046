#include "inspect.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <fstream>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <typeindex>

#include <vnxstd/archive/observer.h>
#include <vnxstd/archive/registry.h>
#include <vnxstd/archive/text.h>
#include <vnxstd/except/typename.h>
#include <vnxstd/vdb/vdbr_com.h>

#include "format.h"
#include "json.h"
#include "objects.h"
#include "recordhead.h"
#include "std/archive/areas.h"

namespace {

using Span = qcArchiveObserver::Span;
using Facts = std::vector<Entry::Fact>;

constexpr std::size_t kShown = 8;  // numbers of a block
const std::string kUnknown = "an object of a class that is not known here";

Entry::Fact number(const char* name, long long value) { return {name, std::to_string(value)}; }
Entry::Fact words(const char* name, const std::string& text) { return {name, jsonText(text)}; }

template <class T>
std::string written(const void* data, std::size_t i) {
  T value;
  std::memcpy(&value, static_cast<const char*>(data) + i * sizeof value, sizeof value);
  std::array<char, 40> text{};
  if constexpr (std::is_floating_point_v<T>) {
    if (!(value - value == 0)) return value > 0 ? "\"inf\"" : value < 0 ? "\"-inf\"" : "\"nan\"";
  }
  if constexpr (sizeof value == 1) return std::to_string(static_cast<int>(value));
  return {text.data(), std::to_chars(text.data(), text.data() + text.size(), value).ptr};
}

// A kind of number as it is shown.
struct NumberType {
  const char* name;
  std::string (*written)(const void* data, std::size_t i);
};

std::string truth(const void* data, std::size_t i) {
  return static_cast<const unsigned char*>(data)[i] != 0 ? "true" : "false";
}

NumberType typeOf(qcArchive::Number kind, unsigned size) {
  if (kind == qcArchive::boolean) return {"bool", truth};
  if (kind == qcArchive::floating)
    return size == 4 ? NumberType{"f32", written<float>} : NumberType{"f64", written<double>};
  const bool isSigned = kind == qcArchive::signedInteger;
  switch (size) {
    case 1:
      return isSigned ? NumberType{"i8", written<std::int8_t>} : NumberType{"u8", written<std::uint8_t>};
    case 2:
      return isSigned ? NumberType{"i16", written<std::int16_t>} : NumberType{"u16", written<std::uint16_t>};
    case 4:
      return isSigned ? NumberType{"i32", written<std::int32_t>} : NumberType{"u32", written<std::uint32_t>};
    default:
      return isSigned ? NumberType{"i64", written<std::int64_t>} : NumberType{"u64", written<std::uint64_t>};
  }
}

// Makes entries of what the archive tells, with their paths.
class Teller : public qcArchiveObserver {
 public:
  explicit Teller(const std::function<void(const Entry&)>& entry) : entry_(entry) {}

  /// What is told from here on belongs to the next item.
  void beginItem(const std::string& kind, Span span, Facts facts) {
    beginItem();
    isWhole_ = false;
    tell(frames_.back().path, kind, span, std::move(facts));
  }
  /// The next item is what the archive says next.
  void beginItem() {
    reset();
    frames_.assign(1, {'/' + std::to_string(items_++)});
    isWhole_ = true;
  }
  /// The end of what was told last.
  qcInt64 behind() const { return behind_; }
  void behind(qcInt64 at) { behind_ = at; }
  /// The pointer whose object was to come last.
  const std::optional<qcArchiveRecord>& awaited() const { return awaited_; }

  void tell(const std::string& path, const std::string& kind, Span span, Facts facts) {
    behind_ = std::max(behind_, span.at + span.size);
    entry_({path, kind, span.at, span.size, std::move(facts)});
  }
  void opaque(Span span, const std::string& what, const std::string& className = {}) {
    Facts facts{words("what", what)};
    if (!className.empty()) facts.insert(facts.begin(), words("class", className));
    tell(failedPath(), "opaque", span, std::move(facts));
  }
  void fault(const qcException& error) { entry_(faultEntry(failedPath(), error, behind_)); }

  void numbers(Span span, qcArchive::Number kind, unsigned size, const void* data, std::size_t count) override {
    const NumberType type = typeOf(kind, size);
    if (count == 1) return tell(nextPath(), type.name, span, {{"value", type.written(data, 0)}});
    std::string shown = "[";
    for (std::size_t i = 0; i < std::min(count, kShown); ++i) shown += (i == 0 ? "" : ", ") + type.written(data, i);
    if (count > kShown) shown += ", \"...\"";
    tell(nextPath(), type.name, span, {number("count", static_cast<long long>(count)), {"values", shown + ']'}});
  }
  void text(Span span, std::string_view text) override {
    tell(nextPath(), "text", span, {words("value", std::string(text))});
  }
  void record(const qcArchiveRecord& record) override {
    const std::string path = nextPath();
    const bool isRecord = record.kind == qcArchiveRecord::object;
    const bool isFollowed = isRecord || record.kind == qcArchiveRecord::inlined;
    Facts facts;
    if (record.number != 0) facts.push_back(number("id", record.number));
    if (record.number != 0 && !isRecord) facts.push_back({"follows", isFollowed ? "true" : "false"});
    tell(path,
         isRecord             ? "record"
         : record.number == 0 ? "null"
                              : "pointer",
         {record.at, record.size}, std::move(facts));
    if (!isFollowed) return;
    awaited_ = record;
    expected_ = path;
  }
  void beginObject(Span span, const std::type_info& type) override {
    const std::string path = expected_.empty() ? nextPath() : std::exchange(expected_, {});
    awaited_.reset();
    const qcInt64 before = behind_;
    tell(path, "object", span, {words("class", nameOf(type))});
    behind_ = std::max(before, span.at + 4);  // the rest is yet to be told
    frames_.push_back({path});
    objects_.push_back(frames_.size());
  }
  void endObject() override {
    frames_.resize(objects_.back() - 1);
    objects_.pop_back();
  }
  void beginLevel(Span span, const std::type_info& level, unsigned char version) override {
    expected_.clear();
    const bool inObject = !objects_.empty();
    Frame& object = inObject ? frames_[objects_.back() - 1] : frames_.front();
    std::string step = nameOf(level);
    const auto times = std::count(object.levels.begin(), object.levels.end(), step);
    object.levels.push_back(step);
    if (times != 0) step += '#' + std::to_string(times + 1);
    const std::string path = object.path + '/' + step;
    tell(path, "level", span, {number("version", version)});
    frames_.push_back({path});
  }
  void endLevel() override { frames_.pop_back(); }

  /// Leaves the objects and levels that a failed load was in.
  void reset() {
    if (!frames_.empty()) frames_.resize(1);
    objects_.clear();
    expected_.clear();
    awaited_.reset();
  }

 private:
  struct Frame {
    std::string path;
    std::size_t fields = 0;
    std::vector<std::string> levels = {};
  };

  // The path of the next field; that of the item when it is the item itself.
  std::string nextPath() {
    expected_.clear();
    awaited_.reset();
    if (std::exchange(isWhole_, false) && frames_.size() == 1) return frames_.front().path;
    return frames_.back().path + '/' + std::to_string(frames_.back().fields++);
  }

  // The path of what has failed: of the object that was announced, or of the next field.
  std::string failedPath() { return expected_.empty() ? nextPath() : expected_; }

  const std::string& nameOf(const std::type_info& type) {
    std::string& name = names_[type];
    if (name.empty()) name = qcDevEnv::canonicalTypeName(type.name());
    return name;
  }

  const std::function<void(const Entry&)>& entry_;
  std::vector<Frame> frames_;         // of the item, and of the objects and levels that are being told
  std::vector<std::size_t> objects_;  // how many frames there are with each object's
  std::size_t items_ = 0;
  bool isWhole_ = false;  // what comes next is the item
  std::string expected_;  // path of the object that a pointer has announced
  std::optional<qcArchiveRecord> awaited_;
  qcInt64 behind_ = 0;
  std::map<std::type_index, std::string> names_;
};

// Loads the header of a result, and returns where it ends.
qcInt64 loadHeader(qcArchive& archive, qcInt64 at) {
  archive.seek(qcArchive::Position(at));
  qcVDBHeader header;
  archive || header;
  return static_cast<std::streamoff>(archive.tell());
}

class Inspection {
 public:
  Inspection(qcArchive& archive, const std::string& path, const std::function<void(const Entry&)>& entry)
      : archive_(archive), path_(path), bytes_(openedOnce(path)), teller_(entry) {}
  ~Inspection() { archive_.observer(nullptr); }
  Inspection(const Inspection&) = delete;
  Inspection& operator=(const Inspection&) = delete;

  Fault run() {
    archive_.observer(&teller_);
    teller_.behind(place());
    try {
      if (archive_.isSeekable())
        walkRecords();
      else
        walkObjects(place() + archive_.remaining());
    } catch (const qcException& error) {  // of the medium, between objects
      teller_.beginItem();
      fail(error);
    }
    return found_;
  }

 private:
  qcInt64 place() { return static_cast<std::streamoff>(archive_.tell()); }

  bool isAt(qcInt64 at, std::initializer_list<unsigned char> wanted) {
    std::array<char, 4> there{};
    return readAt(bytes_, at, there.data(), wanted.size()) == wanted.size() &&
           std::equal(wanted.begin(), wanted.end(), there.begin(),
                      [](unsigned char a, char b) { return a == static_cast<unsigned char>(b); });
  }
  bool isRecord(qcInt64 at) { return isAt(at, {0x4F, 0xE5, 0x70}); }
  // Not one of those that links lead to: what was given up may have left some of them behind.
  bool isUnlinkedRecord(qcInt64 at) {
    std::array<char, 10> head{};
    return readAt(bytes_, at, head.data(), head.size()) == head.size() && isRecord(at) &&
           (head[3] == 0x54 || head[3] == 0x55) && (head[9] == 0 || head[9] == 1);
  }
  bool isMarker(qcInt64 at) { return isAt(at, {0xF1, 0x66, 0x4B, 0xDF}); }

  // Runs one load that reaches to `end` at most; false when what comes behind it cannot be told.
  template <class Load>
  bool attempt(qcInt64 end, Load load) {
    try {
      load();
      return true;
    } catch (const qcArchive::UnknownType& error) {
      const auto pointer = teller_.awaited();
      const qcInt64 from = teller_.behind();
      end = std::max(end, from);  // a load can have gone too far before it failed
      const bool isWhole = pointer && pointer->body != 0 && pointer->body <= end - from;
      if (faultOf(error) == Fault::limit)
        fail(error);
      else
        teller_.opaque({from, isWhole ? pointer->body : end - from},
                       isWhole ? kUnknown : kUnknown + ", and what follows it", error.name());
    } catch (const qcException& error) {
      fail(error);
    }
    teller_.reset();
    if (const qcInt64 from = teller_.behind(); from < end) teller_.opaque({from, end - from}, "what follows unread");
    return false;
  }
  void fail(const qcException& error) {
    teller_.fault(error);
    found_ = std::max(found_, faultOf(error));
    using Limit = qcLoadContext::Limit;
    const Limit limit = error.loadContext() ? error.loadContext()->limit : Limit::none;
    exhausted_ = exhausted_ || limit == Limit::bytes || limit == Limit::objects || limit == Limit::elements;
  }

  template <class E>
  void failAt(qcInt64 at, E&& error, std::string_view expected, std::string_view found) {
    archive_.seek(qcArchive::Position(at));
    fail(archive_.located(std::forward<E>(error), expected, found));
  }

  void walkObjects(qcInt64 end) {
    while (place() < end) {
      const qcInt64 at = place();
      teller_.behind(at);
      teller_.beginItem();
      if (!isRecord(at)) return teller_.opaque({at, end - at}, "values that only their writer can name");
      if (!attempt(end, [&] {
            qcPersistent* object = nullptr;
            qcPersistent::serializePointer(archive_, nullptr, object);
            kept_.add(object);
          }))
        return;
    }
  }

  void walkRecords() {
    const std::vector<qcArchiveRecord> records = archive_.records();
    const auto damaged = static_cast<std::streamoff>(archive_.damaged());
    const auto unfinished = static_cast<std::streamoff>(archive_.unfinished());
    const qcInt64 all = place() + archive_.remaining();
    const qcInt64 end = damaged != 0 ? damaged : unfinished != 0 ? unfinished : all;
    qcInt64 at = place();
    std::set<long> objects;
    for (const qcArchiveRecord& record : records)
      if (record.kind == qcArchiveRecord::object) objects.insert(record.number);
    isHeadless_ = archive_.version() != 0 && !hasChain(archive_, path_);
    isDatabase_ = holds([](qcArchive& archive) { return isDatabase(archive); });
    if (isHeadless_) {
      teller_.beginItem();
      failAtBreak(qc_format::kAnchorAt, qc_format::kAnchorAt);
    }
    for (std::size_t i = 0; i < records.size() && !exhausted_; ++i) {
      const qcArchiveRecord& record = records[i];
      const bool isBehindMark = i > 0 && records[i - 1].kind == qcArchiveRecord::mark;
      if (isBehindMark && isDatabase_ && isResult(records[i - 1]))
        walkHeader(std::min(at, record.at), record.at);
      else
        walkBetween(at, record.at, isBehindMark);
      walkRecord(record);
      at = std::max(at, record.at + record.size + record.body);
      if (!isDatabase_ || !isResult(record)) continue;
      if (hasPointer(records, i)) {
        const qcArchiveRecord& pointer = records[i + 1];
        if (!pointer.removed && !objects.contains(pointer.number)) loadUntold(pointer);
      } else if (damaged == 0 || i + 1 < records.size()) {
        teller_.beginItem();
        const bool isLast = i + 1 == records.size();
        failAt(record.at + record.size, qcArchive::NotFound(L"no object belongs to this mark", 0),
               "a header, and a pointer to an object",
               isLast                                         ? "the last record"
               : records[i + 1].kind == qcArchiveRecord::mark ? "the next mark"
                                                              : "an object");
      }
    }
    if (exhausted_) {
      teller_.beginItem();
      if (at < end) teller_.opaque({at, end - at}, "what was not read");
      return;
    }
    walkBetween(at, end, false);
    if (damaged == 0 && unfinished == 0) return;
    teller_.beginItem();
    if (damaged != 0) failAtBreak(damaged, records.empty() ? qc_format::kAnchorAt : records.back().at);
    if (const qcInt64 rest = std::max(end, teller_.behind()); rest < all)
      teller_.opaque({rest, all - rest}, damaged != 0 ? "what follows the damage" : "what its writer has not finished");
  }

  // Says what the last record leads to, where that is no record which names it as the one before.
  void failAtBreak(qcInt64 at, qcInt64 last) {
    const bool swap = isSwapped(archive_);
    auto [bytes, record] = headAt(bytes_, at, swap);
    const auto link = static_cast<qcInt64>(headAt(bytes_, last, swap).record.position);
    std::string expected = "a record behind the one at byte " + std::to_string(last), found;
    if (at == qc_format::kAnchorAt)
      expected = "the head of the chain, " + qf_Hex(qc_format::kRecordTag);
    else if (link != at)
      found = "a link to byte " + std::to_string(link);
    else if (record.isLinked())
      found = "one behind byte " + std::to_string(record.previous) +
              (record.is(qc_format::kObject) ? ", of " + counted(static_cast<long long>(record.size), "byte") : "");
    bytes.resize(std::min(bytes.size(), qc_format::kRecordHead));
    if (found.empty()) found = bytes.empty() ? "the end" : qf_Hex(bytes);
    const auto* error = isHeadless_ ? L"no chain of records begins here" : L"the chain of records is broken here";
    failAt(at, qcArchive::BadContent(error, 0), expected, found);
  }

  void walkRecord(const qcArchiveRecord& record) {
    const bool isMark = record.kind == qcArchiveRecord::mark, isObject = record.kind == qcArchiveRecord::object;
    const Span head{record.at, record.size}, body{record.at + record.size, record.body};
    teller_.behind(record.at);
    if (!isObject || record.removed) {
      Facts facts{number(isMark ? "number" : "id", record.number)};
      if (record.removed) facts.push_back({"removed", "true"});
      teller_.beginItem(isMark ? "mark" : isObject ? "record" : "pointer", head, std::move(facts));
      if (isObject) teller_.opaque(body, "an object that was removed");
      return;
    }
    teller_.beginItem();
    attempt(body.at + body.size, [&] {
      archive_.seek(qcArchive::Position(record.at));
      try {
        kept_.add(archive_.loadObject());
      } catch (const qcArchive::UnknownType&) {
        archive_.seek(qcArchive::Position(record.at));
        archive_.objectTypeName();  // what can be told of it without its class may be damaged, too
        throw;
      }
    });
  }

  // Loads what a pointer brings along that is no record by itself, for its faults alone.
  void loadUntold(const qcArchiveRecord& pointer) {
    archive_.observer(nullptr);
    try {
      archive_.seek(qcArchive::Position(pointer.at));
      qcPersistent* object = nullptr;
      qcPersistent::serializePointer(archive_, nullptr, object);
      kept_.add(object);
    } catch (const qcArchive::UnknownType&) {
    } catch (const qcException& error) {
      teller_.beginItem();
      fail(error);
    }
    archive_.observer(&teller_);
  }

  // The header of a result, which fills these bytes.
  void walkHeader(qcInt64 from, qcInt64 to) {
    teller_.behind(from);
    teller_.beginItem("header", {from, to - from}, {});
    teller_.behind(from);
    attempt(to, [&] {
      loadHeader(archive_, from);
      if (place() != to)
        throw archive_.located(qcArchive::BadContent(L"the header of a result has another size", 0),
                               "its end at byte " + std::to_string(to), "one at byte " + std::to_string(place()));
    });
  }

  // What lies between records: the header of a result, objects that are not linked, or what nobody else can name.
  void walkBetween(qcInt64 from, qcInt64 to, bool isBehindMark) {
    for (bool isFirst = true; from < to; isFirst = false) {
      teller_.behind(from);
      if (isFirst && isBehindMark && isHeader(from, to)) return walkHeader(from, to);
      teller_.beginItem();
      // Of a database this is what was given up, whatever it looks like.
      const bool isPointer = !isDatabase_ && isUnlinkedRecord(from);
      const ByValue value = !isDatabase_ && !isPointer && isMarker(from) ? byValueAt(from) : ByValue();
      const qc_RegistryEntry* entry = qf_FindRegistered(value.className);
      const bool isKnown = entry && entry->make;
      if (!isPointer && !isKnown && from < value.end && value.end <= to) {
        teller_.opaque({from, value.end - from}, kUnknown, value.className);
        from = value.end;
        continue;
      }
      if (!isPointer && !isKnown) return teller_.opaque({from, to - from}, "values that only their writer can name");
      if (!attempt(to, [&] {
            archive_.seek(qcArchive::Position(from));
            qcPersistent* object = nullptr;
            if (isPointer) {
              qcPersistent::serializePointer(archive_, nullptr, object);
              kept_.add(object);
            } else {
              std::unique_ptr<qcPersistent> made(entry->make());
              archive_ || *made;
            }
          }))
        return;
      from = std::max(place(), from + 1);
    }
  }

  // Tries something that the observer is not to hear of, and that costs nothing of what the limits allow: on the file
  // opened once more, since limits that are set begin to count anew.
  template <class Try>
  bool holds(Try attempt) {
    try {
      if (!unlimited_) unlimited_ = openArchive(path_);
      return attempt(*unlimited_);
    } catch (const qcException& error) {
      if (faultOf(error) == Fault::medium) throw;
      return false;
    }
  }

  bool isHeader(qcInt64 from, qcInt64 to) {
    return holds([&](qcArchive& archive) { return loadHeader(archive, from) == to; });
  }

  // An object by value, as the entry behind its marker says; without a class and an end where none lies there.
  struct ByValue {
    std::string className;
    qcInt64 end = 0;
  };
  ByValue byValueAt(qcInt64 at) {
    ByValue object;
    if (!isAt(at + 4, {0x6F, 0x8B, 0x68, 0x44})) return object;
    holds([&](qcArchive& archive) {
      archive.seek(qcArchive::Position(at + 8));
      unsigned char variant = 0;
      std::uint32_t narrow = 0;
      qcInt64 size = 0;
      archive || variant;
      if (variant == 0) {
        archive || narrow;
        size = narrow;
      } else {
        archive || size;
      }
      archive || object.className;
      if (size >= 0 && size <= archive.remaining()) object.end = static_cast<std::streamoff>(archive.tell()) + size;
      return true;
    });
    return object;
  }

  qcArchive& archive_;
  const std::string& path_;
  std::ifstream bytes_;
  std::unique_ptr<qcArchive> unlimited_;  // the same file, for what is only looked up
  Teller teller_;
  Fault found_ = Fault::none;
  bool isHeadless_ = false;  // no chain of records begins where one should
  bool isDatabase_ = false;
  bool exhausted_ = false;  // no other load would come to its end
  KeptObjects kept_;        // others may refer to them
};

// Whether what a mark leads to lies behind the end, so that something of what follows the mark is missing.
bool leadsBehindEnd(qcArchive& archive, const qcArchiveRecord& mark) {
  std::array<unsigned char, qc_format::kLinkedHead> head{};
  const qcInt64 all = static_cast<std::streamoff>(archive.tell()) + archive.remaining();
  archive.seek(qcArchive::Position(mark.at));
  archive.raw(reinterpret_cast<char*>(head.data()), static_cast<long>(head.size()));
  qc_Record record = qf_ParseHead(head.data(), isSwapped(archive));
  qf_ParseFields(record, head.data() + qc_format::kRecordHead, isSwapped(archive));
  return record.position > static_cast<qcUInt64>(all);
}

Entry faultAt(const std::string& path, const std::string& message, const qcLoadContext* context, qcInt64 at) {
  Entry entry{path, "fault", at, 0, {words("error", message)}};
  if (!context) return entry;
  if (context->position >= 0) entry.at = context->position;
  if (!context->expected.empty()) entry.facts.push_back(words("expected", context->expected));
  if (!context->found.empty()) entry.facts.push_back(words("found", context->found));
  if (context->limit != qcLoadContext::Limit::none)
    entry.facts.push_back(words("limit", std::string(qf_LimitName(context->limit))));
  return entry;
}

}  // namespace

Entry faultEntry(const std::string& path, const qcException& error, qcInt64 at) {
  return faultAt(path, qf_NarrowLossy(error.message(true)), error.loadContext(), at);
}

Entry faultEntry(const FileError& error) {
  return faultAt("/", error.reason(), error.place() ? &*error.place() : nullptr, 0);
}

qcInt64 headerEnd(qcArchive& archive, const qcArchiveRecord& mark) {
  try {
    return loadHeader(archive, mark.at + mark.size);
  } catch (const qcException& error) {
    if (faultOf(error) == Fault::medium) throw;
    return 0;
  }
}

bool isDatabase(qcArchive& archive) {
  try {
    if (const long first = archive.firstObjectID(); first != 0) {
      archive.seek(archive.findObject(first));
      if (archive.objectTypeName() == "qc_VDBIdentification") return true;
    }
  } catch (const qcException& error) {  // what identifies it may be what is damaged
    if (faultOf(error) == Fault::medium) throw;
  }
  const auto records = archive.records();
  return std::any_of(records.begin(), records.end(), [&](const qcArchiveRecord& record) {
    if (!isResult(record)) return false;
    if (headerEnd(archive, record) != 0) return true;
    const bool isLast = &record == &records.back() && archive.unfinished() != qcArchive::Position(0);
    return isLast && archive.remaining() == 0 && leadsBehindEnd(archive, record);  // it was cut within the header
  });
}

Fault inspect(qcArchive& archive, const std::string& path, const std::function<void(const Entry&)>& entry) {
  return Inspection(archive, path, entry).run();
}
