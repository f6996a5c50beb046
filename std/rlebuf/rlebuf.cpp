#include "vnxstd/rlebuf/rlebuf.h"

#include <algorithm>
#include <functional>
#include <utility>

#include "std/rlebuf/rep.h"
#include "vnxstd/archive/archive.h"
#include "vnxstd/archive/registry.h"
#include "vnxstd/except/pelerrors.h"
#include "vnxstd/math/xflinear.h"

namespace {

namespace rle = vnxstd::rle;

const qc_ErrorRegistration<qcRLEBuffer::Errors, qcRLEBuffer::Degenerate> errorsRegistered;
const qc_Instantiator registered(typeid(qcRLEBuffer), &qcRLEBuffer::make);

constexpr char kSource[] = "std/rlebuf/rlebufnt";

qcPtrHandle_const<qc2XformBase> linearXform(const qcXform<2>& xform) { return new qc2XformLinear(xform); }

/// Rows or columns from an image's border to a place; beyond every size when it lies on the other side.
qcUInt64 distance(long to, std::int32_t from) {
  return static_cast<qcUInt64>(qcInt64{to}) - static_cast<qcUInt64>(qcInt64{from});
}

/// Moves all runs of an image into one new block.
void gather(const qc_RLERep& from, qc_RLERep& to) {
  qcRLEBufferBlock block(static_cast<std::size_t>(from.numRuns() + from.height()));
  std::vector<const qcRLEBufferRun*> rows;
  rows.reserve(from.height());
  qcRLEBufferRun* at = block.runs.get();
  for (std::size_t y = 0; y < from.height(); ++y) {
    rows.push_back(at);
    at = std::copy_n(from.rows[y], std::size_t{from.counts[y]} + 1, at);
  }
  std::vector<qcRLEBufferBlock> blocks;
  blocks.push_back(std::move(block));
  to.blocks.swap(blocks);
  to.rows.swap(rows);
}

std::unique_ptr<qc_RLERep> copied(const qc_RLERep* rep) {
  if (!rep) return nullptr;
  std::unique_ptr<qc_RLERep> copy = rep->like();
  copy->createTime = rep->createTime;
  copy->isBinary = rep->isBinary;
  copy->counts = rep->counts;
  gather(*rep, *copy);
  return copy;
}

/// Takes in a row of `width` pels that begins at `run`, in front of `end`; returns the place behind the run that ends
/// it, or null when it is no such row. Adds the bits of its values.
const qcRLEBufferRun* takeRow(qc_RLERep& rep, const qcRLEBufferRun* run, const qcRLEBufferRun* end,
                              std::uint32_t& values) {
  const qcRLEBufferRun* const first = run;
  std::int64_t left = rep.width;
  for (; run != end && run->length() != 0; ++run) {
    left -= run->length();
    values |= run->value();
    if (left < 0) return nullptr;
  }
  if (left != 0 || run == end || run->value() != 0) return nullptr;
  rep.rows.push_back(first);
  rep.counts.push_back(static_cast<std::uint32_t>(run - first));
  return run + 1;
}

}  // namespace

qc_TmpRLEBuffer::qc_TmpRLEBuffer(std::unique_ptr<qc_RLERep> rep) noexcept : rep_(std::move(rep)) {}
qc_TmpRLEBuffer::qc_TmpRLEBuffer(qc_TmpRLEBuffer&&) noexcept = default;
qc_TmpRLEBuffer::~qc_TmpRLEBuffer() = default;

// --- making ---------------------------------------------------------------------------------------------------------

qcRLEBuffer::qcRLEBuffer() noexcept = default;
qcRLEBuffer::~qcRLEBuffer() = default;

qcRLEBuffer::qcRLEBuffer(const qcRLEBuffer& other)
    : qcPersistent(other), hint_(other.hint_), rep_(copied(other.rep_.get())) {}

qcRLEBuffer& qcRLEBuffer::operator=(const qcRLEBuffer& other) {
  std::unique_ptr<qc_RLERep> copy = copied(other.rep_.get());
  mutating();
  hint_ = other.hint_;
  rep_ = std::move(copy);
  return *this;
}

qcRLEBuffer::qcRLEBuffer(qc_TmpRLEBuffer&& made) noexcept : rep_(std::move(made.rep_)) {}

qcRLEBuffer& qcRLEBuffer::operator=(qc_TmpRLEBuffer&& made) {
  mutating();
  rep_ = std::move(made.rep_);
  return *this;
}

qcRLEBuffer::qcRLEBuffer(long width, long height, unsigned char value) {
  const qcPelRect size(width, height);
  if (size.isNull()) throw Degenerate();
  auto rep = std::make_unique<qc_RLERep>();
  rep->width = static_cast<std::int32_t>(width);
  rle::StretchRow row;
  rle::Collector collector(row, 1);
  collector.add(rep->width, value);
  collector.finish();
  rle::RowWriter writer(*rep, static_cast<std::size_t>(height));
  for (long y = 0; y < height; ++y) writer.row(row);
  writer.finish();
  rep_ = std::move(rep);
}

qcPersistent* qcRLEBuffer::make() { return new qcRLEBuffer; }

void qcRLEBuffer::transfer(qcRLEBuffer& other) {
  mutating();
  other.mutating();
  rep_.swap(other.rep_);
}

void qcRLEBuffer::becomeOwner(long width, const std::vector<const qcRLEBufferRun*>& rows,
                              std::vector<qcRLEBufferBlock> blocks) {
  if (width < 1 || width > INT32_MAX || rows.empty() || rows.size() > INT32_MAX) throw qcPelFunc::BadParams();
  auto rep = std::make_unique<qc_RLERep>();
  rep->hint = hint_;
  rep->width = static_cast<std::int32_t>(width);
  rep->rows.reserve(rows.size());
  rep->counts.reserve(rows.size());
  std::uint32_t values = 0;
  const std::less<> before;
  std::sort(blocks.begin(), blocks.end(),
            [&](const qcRLEBufferBlock& a, const qcRLEBufferBlock& b) { return before(a.runs.get(), b.runs.get()); });
  for (const qcRLEBufferRun* const row : rows) {
    // The row's block is the last one that begins at the row or in front of it.
    const auto behind = std::partition_point(
        blocks.begin(), blocks.end(), [&](const qcRLEBufferBlock& block) { return !before(row, block.runs.get()); });
    if (!row || behind == blocks.begin()) throw qcPelFunc::BadParams();
    const qcRLEBufferRun* const end = behind[-1].runs.get() + (behind[-1].runs ? behind[-1].size : 0);
    if (!before(row, end) || !takeRow(*rep, row, end, values)) throw qcPelFunc::BadParams();
  }
  rep->isBinary = values <= 1;
  rep->blocks = std::move(blocks);
  mutating();
  rep_ = std::move(rep);
}

void qcRLEBuffer::hintNumRuns(int runs) {
  mutating();
  hint_ = runs;
}

// --- queries --------------------------------------------------------------------------------------------------------

qc_RLERep& qcRLEBuffer::changing() {
  qc_RLERep& changed = rep();
  mutating();
  return changed;
}

bool qcRLEBuffer::isBinary() const { return rep().isBinary; }
bool qcRLEBuffer::isContiguous() const { return rep().blocks.size() == 1; }

void qcRLEBuffer::makeContiguous() {
  if (!isContiguous()) gather(*rep_, *rep_);
}

long qcRLEBuffer::width() const { return rep().width; }
long qcRLEBuffer::height() const { return static_cast<long>(rep().height()); }
qcPair<long> qcRLEBuffer::offset() const { return {rep().offsetX, rep().offsetY}; }

void qcRLEBuffer::offset(long x, long y) {
  if (!rle::fits(x, width()) || !rle::fits(y, height())) throw qcPel::BadWindow();
  qc_RLERep& rep = changing();
  rep.offsetX = static_cast<std::int32_t>(x);
  rep.offsetY = static_cast<std::int32_t>(y);
}

double qcRLEBuffer::createTime() const { return rep().createTime; }
qcUInt64 qcRLEBuffer::numRuns() const { return rep().numRuns(); }

qcUInt64 qcRLEBuffer::numRuns(unsigned char value) const {
  qcUInt64 sum = 0;
  rle::forChains(rep(), [&](const qcRLEBufferRun* runs, std::size_t count, std::size_t, std::size_t) {
    for (std::size_t i = 0; i < count; ++i) sum += runs[i].value() == value && runs[i].length() != 0;
  });
  return sum;
}

double qcRLEBuffer::avgRunLength() const {
  return static_cast<double>(width()) * static_cast<double>(height()) / static_cast<double>(numRuns());
}

double qcRLEBuffer::avgRunLength(unsigned char value) const {
  qcUInt64 pels = 0;
  rle::forChains(rep(), [&](const qcRLEBufferRun* runs, std::size_t count, std::size_t, std::size_t) {
    for (std::size_t i = 0; i < count; ++i) pels += runs[i].value() == value ? runs[i].length() : 0U;
  });
  return pels == 0 ? 0 : static_cast<double>(pels) / static_cast<double>(numRuns(value));
}

unsigned char qcRLEBuffer::getPel(long x, long y) const {
  const qc_RLERep& image = rep();
  const qcUInt64 row = distance(y, image.offsetY);
  qcUInt64 column = distance(x, image.offsetX);
  if (column >= static_cast<qcUInt64>(image.width) || row >= image.height()) throw qcPel::BadCoord(x, y);
  const qcRLEBufferRun* run = image.rows[static_cast<std::size_t>(row)];
  for (; column >= run->length(); ++run) column -= run->length();
  return run->value();
}

const qcRLEBufferRun* qcRLEBuffer::pointToRow(long y) const {
  const qc_RLERep& image = rep();
  const qcUInt64 row = distance(y, image.offsetY);
  if (row >= image.height()) throw qcPel::BadCoord(image.offsetX, y);
  return image.rows[static_cast<std::size_t>(row)];
}

const std::vector<const qcRLEBufferRun*>& qcRLEBuffer::pointToRat() const { return rep().rows; }

bool operator==(const qcRLEBuffer& a, const qcRLEBuffer& b) {
  if (!a.rep_ || !b.rep_) return !a.rep_ && !b.rep_;
  const qc_RLERep &first = *a.rep_, &second = *b.rep_;
  if (first.width != second.width || first.height() != second.height()) return false;
  rle::StretchRow rowA, rowB;
  for (std::size_t y = 0; y < first.height(); ++y) {
    if (std::equal(first.rows[y], first.rows[y] + first.counts[y], second.rows[y], second.rows[y] + second.counts[y])) {
      continue;
    }
    rle::expandRow(first, y, rowA);
    rle::expandRow(second, y, rowB);
    const auto isSame = [](const rle::Stretch& s, const rle::Stretch& t) {
      return s.end == t.end && s.value == t.value;
    };
    if (!std::equal(rowA.begin(), rowA.end(), rowB.begin(), rowB.end(), isSame)) return false;
  }
  return true;
}

// --- transforms -----------------------------------------------------------------------------------------------------

const qc2XformCache& qcRLEBuffer::xforms() const { return rep().xforms; }
void qcRLEBuffer::copyXforms(const qc2XformCache& xforms) { changing().xforms = xforms; }
void qcRLEBuffer::clientFromImageXform(const qcXform<2>& xform) { changing().xforms.xform(linearXform(xform), false); }
void qcRLEBuffer::imageFromClientXform(const qcXform<2>& xform) {
  changing().xforms.xformInverse(linearXform(xform), false);
}
void qcRLEBuffer::clientFromImageXformBase(const qc2XformBase& xform) { changing().xforms.xform(xform); }
void qcRLEBuffer::imageFromClientXformBase(const qc2XformBase& xform) { changing().xforms.xformInverse(xform); }
void qcRLEBuffer::clientFromImageXformBase(const qcPtrHandle_const<qc2XformBase>& xform, bool copy) {
  changing().xforms.xform(xform, copy);
}
void qcRLEBuffer::imageFromClientXformBase(const qcPtrHandle_const<qc2XformBase>& xform, bool copy) {
  changing().xforms.xformInverse(xform, copy);
}

// --- archives -------------------------------------------------------------------------------------------------------

namespace {

/// The fields in front of the runs.
void header(qcArchive& archive, unsigned char version, qc_RLERep& rep, std::int32_t& height, std::uint32_t& total) {
  archive || rep.hint || rep.createTime || rep.width || height;
  if (archive.isLoading() && (rep.width < 1 || height < 1)) {
    throw archive.located(qcArchive::BadContent(kSource, 2951), "a size >= 1");
  }
  if (version > 0) {
    archive || rep.offsetX || rep.offsetY;
    if (archive.isLoading() && (!rle::fits(rep.offsetX, rep.width) || !rle::fits(rep.offsetY, height))) {
      throw archive.located(qcArchive::BadContent(kSource, 2957), "32-bit coordinates");
    }
    if (version == 1) {
      qcXform<2> clientFromImage;
      archive || clientFromImage;
      rep.xforms.xform(linearXform(clientFromImage), false);
    } else {
      archive || rep.xforms;
    }
    archive || rep.isBinary;
  }
  archive || total;
}

/// One block of `need` runs. Where the medium cannot tell what it has, memory grows with what arrives.
qcRLEBufferBlock loadRuns(qcArchive& archive, std::size_t need) {
  constexpr std::size_t kFirstPiece = std::size_t{1} << 16;
  archive.countElements(need, sizeof(qcRLEBufferRun));
  const qcInt64 remaining = archive.remaining();
  const bool isKnown = remaining >= 0;
  if (isKnown && static_cast<qcUInt64>(remaining) / sizeof(qcRLEBufferRun) < need) {
    throw archive.located(qcArchive::Eof(kSource, 2990), std::to_string(need) + " runs",
                          std::to_string(remaining / qcInt64{sizeof(qcRLEBufferRun)}));
  }
  qcRLEBufferBlock block;
  for (std::size_t have = 0; have < need;) {
    const std::size_t step = isKnown ? need : std::min(need - have, std::max(have, kFirstPiece));
    qcRLEBufferBlock larger(have + step);
    std::copy_n(block.runs.get(), have, larger.runs.get());
    archive.block(reinterpret_cast<unsigned char*>(larger.runs.get() + have), step * sizeof(qcRLEBufferRun));
    block = std::move(larger);
    have += step;
  }
  return block;
}

std::unique_ptr<qc_RLERep> load(qcArchive& archive, unsigned char version) {
  auto rep = std::make_unique<qc_RLERep>();
  std::int32_t height = 0;
  std::uint32_t total = 0;
  header(archive, version, *rep, height, total);
  const auto width = static_cast<qcUInt64>(rep->width), rows = static_cast<qcUInt64>(height);
  if (total < rows * ((width + 254) / 255) || total > rows * width) {
    throw archive.located(qcArchive::BadContent(kSource, 3012), "a number of runs that fits the size");
  }
  const qcUInt64 need = total + rows;
  if (need > static_cast<qcUInt64>(PTRDIFF_MAX) / sizeof(qcRLEBufferRun)) {
    throw archive.located(qcArchive::BadContent(kSource, 3015), "a number of runs that fits memory");
  }

  rep->blocks.push_back(loadRuns(archive, static_cast<std::size_t>(need)));
  rep->rows.reserve(static_cast<std::size_t>(height));
  rep->counts.reserve(static_cast<std::size_t>(height));
  const qcRLEBufferRun* run = rep->blocks[0].runs.get();
  const qcRLEBufferRun* const end = run + need;
  std::uint32_t values = 0;
  for (std::int32_t y = 0; y < height; ++y) {
    run = takeRow(*rep, run, end, values);
    if (!run) throw archive.located(qcArchive::BadContent(kSource, 3026), "runs that fill the row");
  }
  if (run != end) throw archive.located(qcArchive::BadContent(kSource, 3028), "no runs behind the last row");
  rep->isBinary = values <= 1;
  return rep;
}

void store(qcArchive& archive, qc_RLERep& rep) {
  auto height = static_cast<std::int32_t>(rep.height());
  auto total = static_cast<std::uint32_t>(rep.numRuns());
  header(archive, 2, rep, height, total);
  rle::forChains(rep, [&](const qcRLEBufferRun* runs, std::size_t count, std::size_t, std::size_t) {
    archive.block(reinterpret_cast<const unsigned char*>(runs), (count + 1) * sizeof(qcRLEBufferRun));
  });
}

}  // namespace

void qcRLEBuffer::serialize_(qcArchive& archive, unsigned char version) {
  qcArchive::checkVersion(archive, version, 2, kSource, 2925);
  if (archive.isStoring() && version < 2) throw qcArchive::UnknownVersion(kSource, 2928);
  if (archive.isStoring() && rep_ && rep_->numRuns() > UINT32_MAX) throw qcArchive::BadContent(kSource, 2930);
  qcPersistent::dispatchSerialize(archive);
  std::int32_t hint = hint_;
  unsigned char isDegenerate = rep_ ? 0 : 1;
  archive || hint || isDegenerate;
  if (isDegenerate > 1) throw archive.located(qcArchive::BadContent(kSource, 2939), "a flag of 0 or 1");
  if (archive.isStoring()) {
    if (rep_) store(archive, *rep_);
    return;
  }
  std::unique_ptr<qc_RLERep> loaded = isDegenerate ? nullptr : load(archive, version);
  mutating();
  hint_ = hint;
  rep_ = std::move(loaded);
}
