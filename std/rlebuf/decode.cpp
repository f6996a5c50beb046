// From runs to pels, and what runs do to the pels of an image.
#include <array>
#include <cstring>
#include <vector>

#include "std/rlebuf/rep.h"
#include "vnxstd/pelbuf/apply.h"
#include "vnxstd/pelbuf/prepare.h"

namespace {

namespace rle = vnxstd::rle;

constexpr std::size_t kTableSize = 65536;

void checkTable(const std::vector<unsigned char>& table) {
  if (table.size() != kTableSize) throw qcPelFunc::BadParams();
}

/// Where an image, moved by `offset`, lies in a window.
struct Common {
  Common(const qc_RLERep& rep, const qcPair<long>& offset, const qcPelRect& window)
      : columns(rle::moved(rep.offsetX, offset.x()), rep.width, window.x0(), window.width()),
        rows(rle::moved(rep.offsetY, offset.y()), static_cast<qcInt64>(rep.height()), window.y0(), window.height()),
        shiftX(rle::moved(rep.offsetX, offset.x()) - window.x0()),
        shiftY(rle::moved(rep.offsetY, offset.y()) - window.y0()) {}

  rle::Overlap columns, rows;  // of the image
  qcInt64 shiftX, shiftY;      // from the image's columns and rows to those of the window
};

/// Calls use(x, y, length, value) for all pieces of runs in a window; x and y count from its upper-left pel. Runs that
/// were split because they are long are one piece.
template <class Use>
void forPieces(const qc_RLERep& rep, const qcPair<long>& offset, const qcPelRect& window, Use use) {
  const Common common(rep, offset, window);
  if (common.columns.isEmpty()) return;
  for (qcInt64 y = common.rows.first; y < common.rows.last; ++y) {
    const qcRLEBufferRun* run = rep.rows[static_cast<std::size_t>(y)];
    qcInt64 start = common.columns.first, end = 0;
    while (start < common.columns.last) {
      const unsigned char value = run->value();
      end += run->length();
      while (run++->length() == 255 && end < rep.width && run->value() == value) end += run->length();
      const qcInt64 stop = std::min(end, common.columns.last);
      if (stop <= start) continue;
      use(static_cast<std::ptrdiff_t>(start + common.shiftX), static_cast<std::ptrdiff_t>(y + common.shiftY),
          static_cast<std::size_t>(stop - start), value);
      start = stop;
    }
  }
}

/// Noise is mostly runs of one pel, which a call would cost more than the pel.
inline void fill(unsigned char* pels, unsigned char value, std::size_t count) {
  *pels = value;
  if (count > 1) std::memset(pels + 1, value, count - 1);
}

/// Counts of pels; neighbours go to different tables, so that equal ones need not wait for each other.
class Tally {
 public:
  void add(const unsigned char* pels, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) ++tables_[i % tables_.size()][pels[i]];
  }
  void addTo(std::vector<unsigned long>& counts) {
    for (std::size_t t = 1; t < tables_.size(); ++t) {
      for (std::size_t v = 0; v < 256; ++v) tables_[0][v] += tables_[t][v];
    }
    rle::addHistogram(tables_[0], counts);
  }

 private:
  std::array<rle::Histogram, 4> tables_{};
};

}  // namespace

void qcRLEBuffer::image(qcPelBuffer<unsigned char>& pels) const {
  const qc_RLERep& from = rep();
  if (!pels.isBound()) {
    pels = image();
    return;
  }
  const qc_PelRows<unsigned char> to = qf_PelRows(pels);
  forPieces(from, {}, pels.window(), [&](std::ptrdiff_t x, std::ptrdiff_t y, std::size_t length, unsigned char value) {
    fill(to.row(y) + x, value, length);
  });
}

qcPelBuffer<unsigned char> qcRLEBuffer::image() const {
  qcPelBuffer<unsigned char> pels(window());
  pels.copyXforms(xforms());
  image(pels);
  return pels;
}

void qcRLEBuffer::copyRegion(const qcPelBuffer_const<unsigned char>& source,
                             const qcPelBuffer<unsigned char>& destination, const qcPair<long>& offset,
                             bool invert) const {
  const qc_RLERep& region = rep();
  if (!source.isBound() || !destination.isBound()) throw qcPel::UnboundWindow();
  qcPelBuffer_const<unsigned char> src = source;
  qcPelBuffer<unsigned char> dst = destination;
  const bool isInPlace = source.offset() - source.offsetRoot() == destination.offset() - destination.offsetRoot();
  if (source.sharesPels(destination)) {
    if (!isInPlace) throw qcPelFunc::Overlap();
    return;  // every pel is its own copy
  }
  qf_PelPrepareMove(src, dst);
  const qc_PelRows<const unsigned char> from = qf_PelRows(src);
  const qc_PelRows<unsigned char> to = qf_PelRows(dst);
  if (to.isEmpty()) return;
  forPieces(region, offset, dst.window(),
            [&](std::ptrdiff_t x, std::ptrdiff_t y, std::size_t length, unsigned char value) {
              if ((value != 0) != invert) std::memcpy(to.row(y) + x, from.row(y) + x, length);
            });
}

void qcRLEBuffer::setRegion(const qcPelBuffer<unsigned char>& pels, unsigned char value, const qcPair<long>& offset,
                            bool invert) const {
  const qc_RLERep& region = rep();
  const qc_PelRows<unsigned char> to = qf_PelRows(pels);
  forPieces(region, offset, pels.window(),
            [&](std::ptrdiff_t x, std::ptrdiff_t y, std::size_t length, unsigned char of) {
              if ((of != 0) != invert) fill(to.row(y) + x, value, length);
            });
}

void qcRLEBuffer::histo(const qcPelBuffer_const<unsigned char>& pels, std::vector<unsigned long>& counts) const {
  const qc_RLERep& region = rep();
  const qc_PelRows<const unsigned char> from = qf_PelRows(pels);
  Tally tally;
  forPieces(region, {}, pels.window(), [&](std::ptrdiff_t x, std::ptrdiff_t y, std::size_t length, unsigned char of) {
    if (of != 0) tally.add(from.row(y) + x, length);
  });
  tally.addTo(counts);
}

void qfPelCombine_U8(const qcPelBuffer<unsigned char>& pels, const qcRLEBuffer& runs, const qcPair<long>& offset,
                     const std::vector<unsigned char>& table) {
  checkTable(table);
  const qc_RLERep& rep = runs.rep();
  const qc_PelRows<unsigned char> to = qf_PelRows(pels);
  // The part of the table that belongs to a run value, made when that value first occurs.
  struct Column {
    bool isMade = false, changesNothing = true;
    std::array<unsigned char, 256> result;
  };
  std::vector<Column> columns(256);
  forPieces(rep, offset, pels.window(), [&](std::ptrdiff_t x, std::ptrdiff_t y, std::size_t length, unsigned char of) {
    Column& column = columns[of];
    if (!column.isMade) {
      for (std::size_t pel = 0; pel < 256; ++pel) {
        column.result[pel] = table[256 * pel + of];
        column.changesNothing &= column.result[pel] == pel;
      }
      column.isMade = true;
    }
    if (column.changesNothing) return;
    unsigned char* const at = to.row(y) + x;
    for (std::size_t i = 0; i < length; ++i) at[i] = column.result[at[i]];
  });
}
