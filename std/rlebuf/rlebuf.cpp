#include "vnxstd/rlebuf/rlebuf.h"

#include <algorithm>
#include <functional>
#include <utility>

#include "std/rlebuf/rep.h"
#include "vnxstd/archive/registry.h"
#include "vnxstd/except/pelerrors.h"
#include "vnxstd/math/xflinear.h"

namespace {

namespace rle = vnxstd::rle;

const qc_ErrorRegistration<qcRLEBuffer::Errors, qcRLEBuffer::Degenerate> errorsRegistered;
const qc_Instantiator registered(typeid(qcRLEBuffer), &qcRLEBuffer::make);

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
    if (!before(row, end) || !rle::takeRow(*rep, row, end, values)) throw qcPelFunc::BadParams();
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
