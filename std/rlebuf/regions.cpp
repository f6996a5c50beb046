#include "vnxstd/rlebuf/regions.h"

#include <algorithm>
#include <cmath>
#include <numeric>

#include "std/rlebuf/rep.h"

namespace {

namespace rle = vnxstd::rle;

/// Sets of numbers, one of which stands for its set.
class DisjointSets {
 public:
  void add() {
    parents_.push_back(static_cast<std::uint32_t>(parents_.size()));
    ranks_.push_back(0);
  }
  std::uint32_t find(std::uint32_t i) {
    while (parents_[i] != i) i = parents_[i] = parents_[parents_[i]];
    return i;
  }
  void unite(std::uint32_t i, std::uint32_t j) {
    const std::uint32_t a = find(i), b = find(j);
    if (a == b) return;
    if (ranks_[a] == ranks_[b]) ++ranks_[a];
    if (ranks_[a] > ranks_[b]) {
      parents_[b] = a;
    } else {
      parents_[a] = b;
    }
  }
  std::size_t size() const { return parents_.size(); }

 private:
  std::vector<std::uint32_t> parents_;
  std::vector<unsigned char> ranks_;
};

}  // namespace

qcRadian qcRLERegion::angle() const {
  constexpr double kNoise = 1e-12;  // what rounding leaves of differences that are zero
  if (std::hypot(xx - yy, 2 * xy) <= kNoise * (xx + yy)) return qcRadian(0);
  return qcRadian(std::atan2(2 * xy, xx - yy) / 2);
}

double qcRLERegion::elongation() const {
  const double middle = (xx + yy) / 2 + 1.0 / 12, spread = std::hypot((xx - yy) / 2, xy);
  return std::sqrt((middle + spread) / std::max(middle - spread, 1.0 / 12));
}

qcRLERegions::qcRLERegions(const qcRLEBuffer& image, Connectivity connectivity)
    : connectivity_(connectivity),
      offsetX_(image.rep().offsetX),
      offsetY_(image.rep().offsetY),
      xforms_(image.rep().xforms) {
  if (connectivity != four && connectivity != eight) throw qcPelFunc::BadParams();
  label(image);
}

void qcRLERegions::label(const qcRLEBuffer& image) {
  const qc_RLERep& rep = image.rep();
  std::vector<Piece> pieces;
  std::vector<unsigned char> values;
  DisjointSets sets;
  const qcInt64 reach = connectivity_ == eight ? 1 : 0;  // how far past their ends stretches of two rows touch
  rle::StretchRow row;
  std::size_t above = 0;  // the first piece of the row above that may touch what comes
  for (std::size_t y = 0; y < rep.height(); ++y) {
    rle::expandRow(rep, y, row);
    const std::size_t first = pieces.size();
    std::int32_t start = 0;
    for (const rle::Stretch& stretch : row) {
      if (stretch.value != 0) {
        if (sets.size() == UINT32_MAX) throw qcPelFunc::Range();
        const auto piece = static_cast<std::uint32_t>(sets.size());
        sets.add();
        pieces.push_back({start, stretch.end, static_cast<std::int32_t>(y)});
        values.push_back(static_cast<unsigned char>(stretch.value));
        while (above < first && pieces[above].last + reach <= start) ++above;
        for (std::size_t i = above; i < first && pieces[i].first < stretch.end + reach; ++i) {
          if (values[i] == stretch.value) sets.unite(static_cast<std::uint32_t>(i), piece);
        }
      }
      start = stretch.end;
    }
    above = first;
  }

  // Regions are numbered by their first pieces, and pieces are put in the order of their regions.
  constexpr std::uint32_t kNoRegion = UINT32_MAX;
  std::vector<std::uint32_t> regionOf(pieces.size(), kNoRegion);  // of the piece that stands for a set, then of all
  std::vector<unsigned char> valueOf;
  for (std::uint32_t i = 0; i < pieces.size(); ++i) {
    std::uint32_t& region = regionOf[sets.find(i)];
    if (region == kNoRegion) {
      region = static_cast<std::uint32_t>(valueOf.size());
      valueOf.push_back(values[i]);
      starts_.push_back(0);
    }
    regionOf[i] = region;
    ++starts_[region];
  }
  std::exclusive_scan(starts_.begin(), starts_.end(), starts_.begin(), std::size_t{0});
  std::vector<std::size_t> next = starts_;
  starts_.push_back(pieces.size());
  pieces_.resize(pieces.size());
  for (std::size_t i = 0; i < pieces.size(); ++i) pieces_[next[regionOf[i]]++] = pieces[i];

  regions_.reserve(valueOf.size());
  for (std::size_t r = 0; r < valueOf.size(); ++r) {
    regions_.push_back(measured(valueOf[r], pieces_.data() + starts_[r], pieces_.data() + starts_[r + 1]));
  }
}

qcRLERegion qcRLERegions::measured(unsigned char value, const Piece* begin, const Piece* end) const {
  qcRLERegion region;
  region.value = value;
  // Sums over pels, counted from the first one: small numbers, which sums of squares keep exact the longer.
  double u = 0, v = 0, uu = 0, uv = 0, vv = 0;
  std::int32_t left = begin->first, right = begin->last;
  for (const Piece* piece = begin; piece != end; ++piece) {
    left = std::min(left, piece->first);
    right = std::max(right, piece->last);
    region.area += qcInt64{piece->last} - piece->first;
    const double n = static_cast<double>(qcInt64{piece->last} - piece->first);
    const double start = static_cast<double>(qcInt64{piece->first} - begin->first);
    const double y = static_cast<double>(qcInt64{piece->row} - begin->row);
    const double sum = n * start + n * (n - 1) / 2;
    u += sum;
    v += n * y;
    uu += n * start * start + start * n * (n - 1) + n * (n - 1) * (2 * n - 1) / 6;
    uv += y * sum;
    vv += n * y * y;
  }
  const double n = static_cast<double>(region.area);
  u /= n;
  v /= n;
  region.xx = std::max(uu / n - u * u, 0.0);
  region.xy = uv / n - u * v;
  region.yy = std::max(vv / n - v * v, 0.0);
  region.centroid = {static_cast<double>(qcInt64{offsetX_} + begin->first) + 0.5 + u,
                     static_cast<double>(qcInt64{offsetY_} + begin->row) + 0.5 + v};
  const std::int32_t height = (end - 1)->row - begin->row + 1;
  region.boundingBox = qcPelRect(offsetX_ + left, offsetY_ + begin->row, right - left, height);
  return region;
}

std::size_t qcRLERegions::checked(std::size_t index) const {
  if (index >= regions_.size()) throw qcPelFunc::BadParams();
  return index;
}

qc_TmpRLEBuffer qcRLERegions::image(std::size_t index) const {
  const qcRLERegion& region = this->region(index);
  auto made = std::make_unique<qc_RLERep>();
  const auto height = static_cast<std::size_t>(region.boundingBox.height());
  made->width = static_cast<std::int32_t>(region.boundingBox.width());
  made->offsetX = static_cast<std::int32_t>(region.boundingBox.x0());
  made->offsetY = static_cast<std::int32_t>(region.boundingBox.y0());
  made->xforms = xforms_;
  const std::int32_t left = made->offsetX - offsetX_;
  rle::RowWriter writer(*made, height);
  const Piece* piece = pieces_.data() + starts_[index];
  const Piece* const end = pieces_.data() + starts_[index + 1];
  while (piece != end) {  // every row has pieces, since the region is connected
    const Piece* const rowEnd = std::find_if(piece, end, [row = piece->row](const Piece& p) { return p.row != row; });
    rle::RunSink sink(writer, 2 * static_cast<std::size_t>(rowEnd - piece) + 1);
    for (; piece != rowEnd; ++piece) {
      if (piece->first > left) sink.add(piece->first - left, 0);
      sink.add(piece->last - left, region.value);
    }
    if (!sink.reaches(made->width)) sink.add(made->width, 0);
    sink.finish();
  }
  writer.finish();
  return qc_TmpRLEBuffer(std::move(made));
}

// --- borders --------------------------------------------------------------------------------------------------------

/// Walks along the borders of a region with the region to the right: down the right ends of pieces and up their left
/// ends. Where it stands at the end of a piece's side, the rows on both sides of the corner say where it goes. Going up
/// is going down turned by half a turn, so that one way serves both: columns are negated, "below" is above, "next" is
/// previous.
class qc_BorderWalk {
 public:
  using Piece = qcRLERegions::Piece;

  qc_BorderWalk(const qcRLERegions& regions, std::size_t index)
      : first_(regions.pieces_.data() + regions.starts_[index]),
        count_(static_cast<std::ptrdiff_t>(regions.starts_[index + 1] - regions.starts_[index])),
        isEight_(regions.connectivity_ == qcRLERegions::eight),
        offsetX_(regions.offsetX_),
        offsetY_(regions.offsetY_),
        isWalked_(static_cast<std::size_t>(count_)) {
    for (std::ptrdiff_t i = 0; i < count_; ++i) {
      if (i == 0 || first_[i].row != first_[i - 1].row) rows_.push_back(i);
    }
    rows_.push_back(count_);
  }

  std::ptrdiff_t count() const { return count_; }
  bool isWalked(std::ptrdiff_t piece) const { return isWalked_[static_cast<std::size_t>(piece)]; }

  /// The border that runs down the right end of a piece.
  qcPolyline around(std::ptrdiff_t piece) {
    std::vector<qcVector<2>> corners;
    Side side{piece, 1};
    do {
      if (side.down > 0) isWalked_[static_cast<std::size_t>(side.piece)] = true;
      side = next(side, corners);
    } while (side.piece != piece || side.down < 0);
    return qcPolyline(std::move(corners), true);
  }

 private:
  struct Side {
    std::ptrdiff_t piece;
    int down;  // 1 down the right end, -1 up the left end
  };

  qcInt64 ahead(std::ptrdiff_t piece, int down) const { return down > 0 ? first_[piece].last : -first_[piece].first; }
  qcInt64 behind(std::ptrdiff_t piece, int down) const { return down > 0 ? first_[piece].first : -first_[piece].last; }
  bool isIn(std::ptrdiff_t piece, qcInt64 row) const {
    return piece >= 0 && piece < count_ && first_[piece].row == row;
  }

  /// The last piece of a row that begins before x; the one before the first of the row when there is none.
  std::ptrdiff_t lastBefore(qcInt64 x, qcInt64 row, int down) const {
    const qcInt64 index = row - first_->row;
    if (index < 0 || index >= static_cast<qcInt64>(rows_.size()) - 1) return down > 0 ? -1 : count_;
    const std::ptrdiff_t begin = rows_[static_cast<std::size_t>(index)];
    const std::ptrdiff_t end = rows_[static_cast<std::size_t>(index) + 1];
    const Piece *const from = first_ + begin, *const to = first_ + end;
    if (down > 0) return std::partition_point(from, to, [&](const Piece& p) { return p.first < x; }) - first_ - 1;
    return std::partition_point(from, to, [&](const Piece& p) { return -p.last >= x; }) - first_;
  }

  Side next(Side side, std::vector<qcVector<2>>& corners) const {
    const std::ptrdiff_t piece = side.piece;
    const int down = side.down;
    const qcInt64 row = first_[piece].row, below = row + down, x = ahead(piece, down);
    const qcInt64 touch = isEight_ ? 0 : 1;  // pieces that meet at a corner only are connected, or are not
    const auto turn = [&](qcInt64 at) {
      corners.emplace_back(static_cast<double>(offsetX_ + down * at),
                           static_cast<double>(offsetY_ + std::max(row, below)));
    };
    std::ptrdiff_t under = lastBefore(x, below, down);
    bool isUnder = isIn(under, below) && ahead(under, down) >= x;
    if (isUnder && ahead(under, down) == x) return {under, down};  // straight on
    turn(x);
    if (!isUnder && isEight_ && isIn(under + down, below) && behind(under + down, down) == x) {
      under += down;
      isUnder = true;
    }
    if (isUnder) {  // along the upper side of the piece below, to its end or to where the next piece stands upon it
      const std::ptrdiff_t beside = piece + down;
      if (isIn(beside, row) && behind(beside, down) + touch <= ahead(under, down)) {
        turn(behind(beside, down));
        return {beside, -down};
      }
      turn(ahead(under, down));
      return {under, down};
    }
    // Back along the lower side of the piece, to its other end or to where the piece below begins.
    if (isIn(under, below) && ahead(under, down) >= behind(piece, down) + touch) {
      turn(ahead(under, down));
      return {under, down};
    }
    turn(behind(piece, down));
    return {piece, -down};
  }

  const Piece* first_;
  std::ptrdiff_t count_;
  bool isEight_;
  qcInt64 offsetX_, offsetY_;
  std::vector<std::ptrdiff_t> rows_;  // the first piece of every row, and behind the last one
  std::vector<bool> isWalked_;        // whose right ends belong to a border that is known
};

qcPolyline qcRLERegions::boundary(std::size_t index) const { return qc_BorderWalk(*this, checked(index)).around(0); }

std::vector<qcPolyline> qcRLERegions::boundaries(std::size_t index) const {
  qc_BorderWalk walk(*this, checked(index));
  std::vector<qcPolyline> borders;
  for (std::ptrdiff_t piece = 0; piece < walk.count(); ++piece) {
    if (!walk.isWalked(piece)) borders.push_back(walk.around(piece));
  }
  return borders;
}
