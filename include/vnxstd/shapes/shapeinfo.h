// The perimeter bookkeeping of a shape: between distances along its boundary and positions on its pieces.
#pragma once

#include <vector>

#include "vnxstd/export.h"
#include "vnxstd/shapes/shape.h"

/// The lengths of the pieces of a shape's boundary and where along the whole boundary each of them starts. It is made
/// once per shape and then answers in a time that is logarithmic in the number of pieces. A value: it keeps no
/// reference to the shape, and holds for as long as the shape is not changed. What was moved from is left without
/// pieces.
///
/// Distances are measured from the start of the whole boundary. That of a region is closed and distances on it wrap
/// around; every other is open and distances are clamped to it.
class VNXSTD_EXPORT qcShapeInfo {
 public:
  /// The information of an empty shape.
  qcShapeInfo() = default;
  /// Throws qcShapesError::InfiniteExtent when a piece of the shape has no finite length. Linear in the number of
  /// pieces.
  explicit qcShapeInfo(const qcShape& shape);

  long numPieces() const { return static_cast<long>(pieces_.size()); }
  bool isClosed() const { return closed_; }
  /// The length of a piece, and the distance at which it starts. Throws qcShapesError::BadIndex when there is no such
  /// piece.
  double pieceLength(long piece) const;
  double startOf(long piece) const;

  /// The length of the whole boundary.
  double perimeter() const { return pieces_.empty() ? 0 : pieces_.back().start + pieces_.back().length; }

  // These throw qcShapesError::EmptyShape without pieces, BadIndex for a position on a piece that does not exist, and
  // BadParams for a distance that is no number, or infinite on a closed boundary.

  /// The position at a distance from the start. A distance exactly on a joint gives the start of the later piece,
  /// except at the end of an open boundary.
  qcPerimPos perimPos(double distance) const;
  /// The position reached by moving by a signed distance from a position.
  qcPerimPos perimPos(const qcPerimPos& from, double distance) const;
  /// The distance from the start, at most the perimeter: the inverse of perimPos(double).
  double distanceAlong(const qcPerimPos& position) const;

  /// The information of the reversed shape, for one contour of decomposed pieces, or a general tree of them. Of others,
  /// as of region trees and rectangles, reversing rearranges the pieces: build it from the reversed shape.
  qcShapeInfo reverse_() const;

  // For those who build shapes out of pieces.

  /// Adds the pieces of a shape; the first of them gets the number `first`, at most numPieces(), and those from there
  /// on move up. Throws qcShapesError::BadIndex for another number, and InfiniteExtent like the constructor; nothing is
  /// changed then.
  void append_(long first, const qcShape& shape);
  /// The same pieces as one contour, closed or not.
  void flatten_(qcShapeInfo& contour, bool closed) const;
  /// One piece alone, open. Throws qcShapesError::BadIndex.
  void extract_(long piece, qcShapeInfo& alone) const;
  /// The information after a mapping that scales lengths by `factor`. Throws qcShapesError::BadParams for a factor
  /// below 0 or NaN, InfiniteExtent when a length overflows.
  void mapShape_(double factor, qcShapeInfo& mapped) const;
  /// Reverses the order of the pieces from `first` up to but not including `last`. Throws qcShapesError::BadIndex.
  void reverseRecurs_(long first, long last);

  friend bool operator==(const qcShapeInfo&, const qcShapeInfo&) = default;

 private:
  struct Piece {
    double start, length;
    friend bool operator==(const Piece&, const Piece&) = default;
  };

  std::vector<double> lengths() const;
  void assign(const std::vector<double>& lengths);
  const Piece& checkedPiece(long piece) const;

  std::vector<Piece> pieces_;
  bool closed_ = false;
};

/// Carries positions from one shape's information to that of a related shape. The stretch of boundary that starts with
/// piece `fromPiece` of the one is the stretch that starts with piece `toPiece` of the other, as with a shape and its
/// decomposition (0 and 0), or a child and the tree that holds it. A piece that is the same in both, of one length and
/// as far from the start, keeps its positions. Else arc lengths from the start of these pieces are kept; the start of a
/// piece stays the start of one and its end an end, and what lies before the piece on a closed boundary is taken to
/// come behind it where the other one is open. Throws qcShapesError::BadIndex when a piece does not exist, and like
/// perimPos and distanceAlong; the positions are then unchanged.
VNXSTD_EXPORT void qfConvertPerimPositions(const qcShapeInfo& from, long fromPiece, const qcShapeInfo& to, long toPiece,
                                           std::vector<qcPerimPos>& positions);
