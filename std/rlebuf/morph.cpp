// Grey erosion and dilation.
#include "std/rlebuf/rep.h"

namespace {

namespace rle = vnxstd::rle;

struct Least {
  static constexpr bool wins(std::uint32_t a, std::uint32_t b) { return a < b; }
  std::uint32_t operator()(std::uint32_t a, std::uint32_t b) const { return std::min(a, b); }
};

struct Greatest {
  static constexpr bool wins(std::uint32_t a, std::uint32_t b) { return a > b; }
  std::uint32_t operator()(std::uint32_t a, std::uint32_t b) const { return std::max(a, b); }
};

/// Moves every border between two stretches into the one that loses, by `right` pels where the left one wins and by
/// `left` pels where the right one does; stretches that nothing is left of vanish. Returns false, with nonsense in
/// `out`, when borders pass each other.
template <class Op>
bool moveBorders(const rle::StretchRow& in, std::int32_t right, std::int32_t left, rle::StretchRow& out) {
  rle::Collector collector(out, in.count());
  std::int32_t lastEnd = 0, passed = 0;
  const auto add = [&](std::int32_t end, std::uint32_t value) {
    passed |= end - lastEnd;
    collector.add(end, end == lastEnd ? collector.last() : value);
    lastEnd = end;
  };
  const rle::Stretch* const last = in.end() - 1;
  for (const rle::Stretch* s = in.begin(); s != last; ++s) {
    add(s->end + (Op::wins(s[0].value, s[1].value) ? right : -left), s->value);
  }
  add(last->end, last->value);
  collector.finish();
  return passed >= 0;
}

/// The row under the horizontal shape.
template <class Op>
void alongRow(const rle::StretchRow& in, rle::StretchRow& scratch, rle::StretchRow& out) {
  if (moveBorders<Op>(in, 1, 1, out)) return;
  // Stretches of one pel between winners: borders that move on one side only meet at most.
  moveBorders<Op>(in, 0, 1, scratch);
  moveBorders<Op>(scratch, 1, 0, out);
}

/// The rows of an image, each under the horizontal shape if wanted, from the top down.
template <class Op>
class Rows {
 public:
  Rows(const qc_RLERep& image, bool isHorizontal) : image_(image), isHorizontal_(isHorizontal) {}
  bool hasNext() const { return next_ < image_.height(); }
  void next(rle::StretchRow& out) {
    rle::expandRow(image_, next_++, isHorizontal_ ? expanded_ : out);
    if (isHorizontal_) alongRow<Op>(expanded_, scratch_, out);
  }

 private:
  const qc_RLERep& image_;
  bool isHorizontal_;
  std::size_t next_ = 0;
  rle::StretchRow expanded_, scratch_;
};

template <class Op>
std::unique_ptr<qc_RLERep> shaped(const qc_RLERep& image, qcRLEBuffer::Shape shape) {
  if (shape != qcRLEBuffer::horizontal && shape != qcRLEBuffer::vertical && shape != qcRLEBuffer::square) {
    throw qcPelFunc::BadParams();
  }
  std::unique_ptr<qc_RLERep> made = image.like();
  rle::RowWriter writer(*made, image.height());
  Rows<Op> rows(image, shape != qcRLEBuffer::vertical);
  const Op op;
  if (shape == qcRLEBuffer::horizontal) {
    for (rle::StretchRow row; rows.hasNext();) {
      rows.next(row);
      writer.row(row);
    }
  } else {
    // Two rows at a time: both share what their own two values come to.
    rle::StretchRow above, upper, lower, below, pair;
    rows.next(upper);
    bool hasAbove = false;
    const auto write = [&](const rle::StretchRow& outer, bool hasOuter) {
      if (!hasOuter) return writer.row(pair);
      rle::RunSink sink(writer, outer.count() + pair.count());
      rle::merge(rle::StretchCursor(outer), rle::StretchCursor(pair), image.width, op, sink);
      sink.finish();
    };
    for (;;) {
      const bool hasLower = rows.hasNext();
      if (hasLower) {
        rows.next(lower);
        rle::Collector collector(pair, upper.count() + lower.count());
        rle::merge(rle::StretchCursor(upper), rle::StretchCursor(lower), image.width, op, collector);
        collector.finish();
      } else {
        std::swap(pair, upper);
      }
      write(above, hasAbove);
      if (!hasLower) break;
      const bool hasBelow = rows.hasNext();
      if (hasBelow) rows.next(below);
      write(below, hasBelow);
      if (!hasBelow) break;
      std::swap(above, lower);
      std::swap(upper, below);
      hasAbove = true;
    }
  }
  writer.finish();
  return made;
}

}  // namespace

qc_TmpRLEBuffer qcRLEBuffer::gmorphMin(Shape shape) const { return qc_TmpRLEBuffer(shaped<Least>(rep(), shape)); }
qc_TmpRLEBuffer qcRLEBuffer::gmorphMax(Shape shape) const { return qc_TmpRLEBuffer(shaped<Greatest>(rep(), shape)); }
