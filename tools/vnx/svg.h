// Drawings as SVG files: an image with shapes over it, on a dark page with a heading.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include <vnxstd/math/xform.h>

#include "chains.h"

/// A text on one line (lineText) as XML takes it.
std::string escaped(std::string_view text);

/// A coordinate or length, in hundredths.
std::string svgNumber(double value);

/// What a path element takes: the chains, closed where a chain ends in its first point. Points beyond a million are
/// drawn there; chains with coordinates that are no numbers are left out.
std::string svgPath(const std::vector<Chain>& chains);

/// The file as it grows. Lengths are pixels of the page. Classes name what the style in svg.cpp describes; a cased
/// element is drawn on a dark border of its own, so that it can be seen on any image.
class Svg {
 public:
  Svg(double width, double height, std::string_view title);

  /// Markup as it stands.
  void add(std::string_view markup) { text_ += markup; }
  void path(std::string_view data, std::string_view kind);
  void casedPath(std::string_view data, std::string_view kind, std::string_view tip = {});
  void text(const qcVector<2>& at, std::string_view words, std::string_view kind);
  /// A text that can be read on any image.
  void casedText(const qcVector<2>& at, std::string_view words, std::string_view kind);
  /// Has a border unless the radius is below 2, where dots may lie so close that the borders would cover them. Left out
  /// where a coordinate is no number.
  void dot(const qcVector<2>& at, double radius, std::string_view colour, std::string_view tip = {});
  /// A cross of two strokes, cased.
  void cross(const qcVector<2>& at, double arm, std::string_view kind);
  void rect(const qcVector<2>& at, double width, double height, std::string_view kind);
  /// A PNG file whose pixel (0, 0) has its corner at the origin of `place`.
  void image(const std::string& png, long width, long height, const qcXform<2>& place);
  /// A bar of a length on the page, with a label over it and its left end at `at`.
  void scaleBar(const qcVector<2>& at, double length, std::string_view label);
  /// What is added between these is cut off at a rectangle.
  void beginClip(const qcVector<2>& at, double width, double height);
  void endClip();

  std::string finished() const { return text_ + "</svg>\n"; }

 private:
  std::string text_;
  int clips_ = 0;
};

/// The largest of 1, 2 and 5 times a power of ten that is no larger than `limit`, a positive number.
double roundLength(double limit);

/// The file's name ends in .svg, in small or capital letters.
bool isSvg(const std::string& path);
