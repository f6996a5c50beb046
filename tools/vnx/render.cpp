#include "render.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <numbers>
#include <optional>
#include <tuple>
#include <type_traits>
#include <vector>

#include <vnxstd/except/typename.h>
#include <vnxstd/pelbuf/buffer.h>
#include <vnxstd/pelbuf/colour.h>
#include <vnxstd/rlebuf/rlebuf.h>
#include <vnxstd/shapes/circle.h>
#include <vnxstd/shapes/ellipsearc.h>
#include <vnxstd/shapes/generaltree.h>
#include <vnxstd/shapes/polyline.h>
#include <vnxstd/shapes/rect.h>

#include "files.h"
#include "format.h"
#include "measurement.h"
#include "objects.h"
#include "pngfile.h"

namespace {

// The page, in its pixels.
constexpr double kMargin = 20, kHeading = 62, kLegend = 300, kAxis = 26;
constexpr double kWidest = 960, kHighest = 900, kNarrowest = 300, kLowest = 160;
constexpr double kTolerance = 0.1;
constexpr double kAround = 0.04;              // of the larger side, free around what is drawn
constexpr long kHeaviest = 2'000'000;         // points of all shapes together
constexpr long long kLargestImage = 1 << 27;  // pixels
constexpr const char* kColours[] = {"#58a6ff", "#ffd33d", "#3fb950", "#ff7b72", "#d2a8ff",
                                    "#ffa657", "#39c5cf", "#ff9bce", "#a5d6ff", "#b1bac4",
                                    "#e3b341", "#7ee787", "#bc8cff", "#f0883e", "#56d4dd"};

std::string attribute(const char* name, const std::string& value) {
  return std::string(" ").append(name).append("=\"").append(value).append("\"");
}
std::string attribute(const char* name, double value) { return attribute(name, svgNumber(value)); }

// A stroke on a dark casing, so that it can be seen on any image.
std::string cased(const std::string& element, const std::string& shape, const std::string& style,
                  const std::string& tip) {
  return '<' + element + " class=\"casing\" fill=\"none\"" + shape + "/>\n<" + element + ' ' + style +
         " stroke-width=\"1.8\"" + shape + "><title>" + escaped(tip) + "</title></" + element + ">\n";
}

// Half an arc at a time: one that ends where it starts would be nothing.
std::string arcPath(const qcEllipseArc2& arc) {
  const qcEllipse2& ellipse = arc.ellipse();
  const double from = arc.phiStart().plain(), span = arc.phiSpan().plain();
  const bool isForward = (span > 0) == ellipse.isRightHanded();
  const auto at = [&](double part) {
    const qcVector<2> p = ellipse.point(qcRadian(from + part * span));
    return svgNumber(p.x()) + ' ' + svgNumber(p.y());
  };
  const std::string radii = svgNumber(ellipse.radii().x()) + ' ' + svgNumber(ellipse.radii().y());
  const std::string half =
      'A' + radii + ' ' + svgNumber(qcDegree(ellipse.angle()).plain()) + (isForward ? " 0 1 " : " 0 0 ");
  return 'M' + at(0) + half + at(0.5) + half + at(1);
}

// What lies in sight of a straight line or ray is between the points nearest to the corners of the page.
Chain inSight(const qcShape& line, const qcRect& page) {
  Chain feet;
  for (const qcVector<2>& corner : {page.ul(), page.ur(), page.lr(), page.ll()})
    feet.push_back(line.nearestPoint(corner));
  Chain best{feet[0], feet[0]};
  for (const qcVector<2>& a : feet)
    for (const qcVector<2>& b : feet)
      if (a.distance(b) > best[0].distance(best[1])) best = {a, b};
  return best;
}

// What the arithmetic of the page can hold.
bool isInReach(const qcRect& box) {
  constexpr double kFarthest = 1e100;
  const qcVector<2> low = box.ul(), high = box.lr();
  return -kFarthest < low.x() && -kFarthest < low.y() && high.x() < kFarthest && high.y() < kFarthest;
}

// About how many points it takes to draw a shape, shapes that it shares counted each time; stops at a limit.
long weightOf(const qcShape& shape, long limit) {
  constexpr long kRound = 32;
  long weight = 0;
  std::vector<const qcShape*> rest{&shape};
  while (!rest.empty() && weight < limit) {
    const qcShape* next = rest.back();
    rest.pop_back();
    if (!next) continue;
    const auto* polyline = dynamic_cast<const qcPolyline*>(next);
    weight += polyline ? polyline->numVertices() : kRound;
    next->heldShapes_(rest);
  }
  return weight;
}

std::string className(const qcPersistent& object) { return qcDevEnv::canonicalTypeName(typeid(object).name()); }

// Numbers from the smallest to the largest finite one as grey from black to white.
template <class T>
qcPelBuffer<unsigned char> greyOf(const qcPelBuffer_const<T>& image) {
  using Number = std::conditional_t<std::is_floating_point_v<T>, T, qcStoredPel<T>>;
  double least = INFINITY, most = -INFINITY;
  const auto each = [&](auto work) {
    for (long y = 0; y < image.height(); ++y)
      for (long x = 0; x < image.width(); ++x)
        work(x, y, static_cast<double>(Number(image.pointToRow(y + image.offset().y())[x])));
  };
  each([&](long, long, double value) {
    if (!std::isfinite(value)) return;
    least = std::min(least, value);
    most = std::max(most, value);
  });
  qcPelBuffer<unsigned char> grey(image.width(), image.height());
  // Halves, since the difference of two doubles may overflow.
  const double range = most / 2 - least / 2;
  each([&](long x, long y, double value) {
    const double share = range > 0 && !std::isnan(value) ? std::clamp((value / 2 - least / 2) / range, 0.0, 1.0) : 0;
    grey.put(x, y, static_cast<unsigned char>(std::lround(255 * share)));
  });
  return grey;
}

template <class T>
std::optional<std::string> pngAs(qcPersistent& object) {
  auto* root = dynamic_cast<qcPelRoot<T>*>(&object);
  if (!root) return std::nullopt;
  const qcPelBuffer_const<T> image(root);
  if constexpr (std::is_same_v<T, unsigned char> || std::is_same_v<T, qcPackedRGB32Pel>)
    return pngOf(image);
  else if constexpr (std::is_same_v<T, qcPackedRGB16Pel> || std::is_same_v<T, qc3PlanePel>) {
    qcPelBuffer<qcPackedRGB32Pel> colours;
    qfConvertColorPelBuffer(image, colours);
    return pngOf(colours);
  } else {
    return pngOf(greyOf(image));
  }
}

template <class... T>
std::optional<std::string> pngAsOneOf(qcPersistent& object) {
  std::optional<std::string> png;
  (... || (png = pngAs<T>(object)).has_value());
  return png;
}

class Renderer {
 public:
  explicit Renderer(const std::string& path) : path_(path) {}

  Rendering operator()() {
    ObjectReader reader(path_);
    if (const std::string damage = damageOf(reader.archive()); !damage.empty())
      result_.damage = FileError(path_, damage);
    try {
      while (const auto object = reader.next()) {
        if (!*object)
          skip("null pointer", "");
        else
          collect(**object);
      }
    } catch (const qcException& error) {
      result_.damage = errorOf(path_, error);
      if (result_.damage->fault() == Fault::medium) throw;
    }
    if (reader.unnamed()) skip("values that only their writer can name", "");
    if (reader.unknown() > 0) result_.skipped["objects of unknown classes"] = reader.unknown();
    if (!result_.drawn.empty()) draw();
    return std::move(result_);
  }

 private:
  struct Item {
    std::string kind;
    std::function<void(Svg&, const qcXform<2>&, const qcRect& page)> draw;
  };

  void skip(const std::string& name, const std::string& reason) {
    ++result_.skipped[reason.empty() ? name : name + " (" + reason + ')'];
  }

  void collect(qcPersistent& object) {
    const std::string name = className(object);
    try {
      if (auto* measurement = dynamic_cast<vnxMeasurement*>(&object)) return collectMeasurement(*measurement, name);
      if (auto* shape = dynamic_cast<qcShape*>(&object)) return collectShape(*shape, name);
      if (auto* runs = dynamic_cast<qcRLEBuffer*>(&object)) return collectRuns(*runs, name);
      if (auto* root = dynamic_cast<qc_PelRoot*>(&object)) return collectRoot(*root, name);
      skip(name, "");
    } catch (const qcException& error) {
      skip(name, qf_Narrow(error.message(false)));
    }
  }

  void add(const std::string& name, const qcRect& box, decltype(Item::draw) draw, bool isImage) {
    box_ = box_ ? box_->enclose(box) : box;
    auto& items = isImage ? images_ : shapes_;
    items.push_back({name, std::move(draw)});
    if (result_.drawn[name]++ == 0 && !isImage) colours_.emplace(name, kColours[colours_.size() % std::size(kColours)]);
  }

  void collectShape(const qcShape& shape, const std::string& name) {
    if (shape.isEmpty()) return skip(name, "empty");
    weight_ += weightOf(shape, kHeaviest - weight_);
    if (weight_ >= kHeaviest) return skip(name, "too much to draw");
    // Of a collection every element is drawn by itself, as arcs are then drawn as such and lines to the border.
    const auto* tree = dynamic_cast<const qcGeneralShapeTree*>(&shape);
    std::vector<const qcShape*> parts = tree ? tree->elements_() : std::vector<const qcShape*>{&shape};
    std::erase_if(parts, [](const qcShape* part) { return part->isEmpty(); });
    std::optional<qcRect> box;
    for (const qcShape* part : parts) {
      const qcRect own = part->isFinite() ? part->boundingBox() : qcRect(part->nearestPoint({0, 0}), {0, 0});
      box = box ? box->enclose(own) : own;
      if (!isInReach(own)) return skip(name, "out of reach");
    }
    const std::string tip =
        name + formatted(": (%.6g, %.6g) size (%.6g, %.6g)", box->ul().x(), box->ul().y(), box->width(), box->height());
    add(
        name, *box,
        [this, parts, name, tip](Svg& svg, const qcXform<2>& onPage, const qcRect& page) {
          for (const qcShape* part : parts) svg.add(shapeMarkup(*part, onPage, page, colours_.at(name), tip));
        },
        false);
  }

  void addImage(const std::string& name, std::string png, const qcRect& box) {
    add(
        name, box,
        [png = std::move(png), box](Svg& svg, const qcXform<2>& onPage, const qcRect&) {
          svg.image(png, std::lround(box.width()), std::lround(box.height()),
                    onPage * qcXform<2>(qcMatrix<2>(1, 0, 0, 1), box.ul()));
        },
        true);
  }

  static bool isDrawable(long width, long height) {
    return hasPng(width, height) && static_cast<long long>(width) <= kLargestImage / height;
  }

  void collectRoot(qc_PelRoot& root, const std::string& name) {
    if (!isDrawable(root.width(), root.height())) return skip(name, kNotDrawable);
    const auto png = pngAsOneOf<unsigned char, qcPackedRGB32Pel, qcPackedRGB16Pel, qc3PlanePel, signed char,
                                unsigned short, short, unsigned long, long, float, double>(root);
    if (!png) return skip(name, "");
    addImage(name, *png, qcRect(root.rect()));
  }

  void collectRuns(const qcRLEBuffer& runs, const std::string& name) {
    if (runs.isDegenerate() || !isDrawable(runs.width(), runs.height())) return skip(name, kNotDrawable);
    const qcPelBuffer<unsigned char> image = runs.image();
    addImage(name, pngOf(greyOf<unsigned char>(image)), qcRect(image.window()));
  }

  void collectMeasurement(const vnxMeasurement& measurement, const std::string& name) {
    const qcPelBuffer<unsigned char>& image = measurement.image;
    if (!image.isBound() || !isDrawable(image.width(), image.height()))
      skip(name + ", image", kNotDrawable);
    else
      addImage(name + ", image", pngOf(image), qcRect(image.window()));
    const std::vector<Chain> outlines = measurement.region.outlines();
    const qcRect box = measurement.region.outline().boundingBox();
    if (!isInReach(box)) return skip(name, "out of reach");
    const std::vector<Chain> fit = measurement.shapeInImage();
    add(
        name, box,
        [this, &measurement, name, outlines, fit](Svg& svg, const qcXform<2>& onPage, const qcRect&) {
          const auto mapped = [&](std::vector<Chain> chains) {
            for (Chain& chain : chains)
              for (qcVector<2>& p : chain) p = onPage * p;
            return attribute("d", svgPath(chains));
          };
          const std::string style = "fill=\"none\" stroke=\"" + colours_.at(name) + '"';
          svg.add(cased("path", mapped(outlines), style + " stroke-dasharray=\"6 4\"", "region"));
          for (std::size_t i = 0; i < measurement.points.size(); ++i) {
            if (measurement.used[i])
              svg.dot(onPage * measurement.points[i], 2, colours_.at(name));
            else
              svg.cross(onPage * measurement.points[i], 3, "rejected");
          }
          svg.add(cased("path", mapped(fit), style, measurement.shapeText()));
        },
        false);
  }

  void draw() {
    const double around = kAround * std::max(box_->width(), box_->height());
    const double pad = around > 1e-100 ? around : 1;
    const qcRect view(box_->ul() - qcVector<2>(pad, pad), box_->size() + qcVector<2>(2 * pad, 2 * pad));
    const double zoom = std::min(kWidest / view.width(), kHighest / view.height());
    const qcVector<2> inner(std::max(view.width() * zoom, kNarrowest), std::max(view.height() * zoom, kLowest));
    const qcVector<2> at(kMargin + 2 * kAxis, kMargin + kHeading);
    const qcRect page(at, inner);
    const qcVector<2> middle = view.ul() + view.size() * 0.5;
    const qcXform<2> onPage(qcMatrix<2>(zoom, 0, 0, zoom), at + inner * 0.5 - middle * zoom);
    const double legend = 30.0 + 24.0 * static_cast<double>(result_.drawn.size() + result_.skipped.size() + 2);
    Svg svg(at.x() + inner.x() + kLegend + 2 * kMargin, at.y() + std::max(inner.y() + kAxis, legend) + kMargin, path_);
    int count = 0;
    for (const auto& [name, number] : result_.drawn) count += number;
    svg.text({kMargin, kMargin + 20}, path_, "title");
    svg.text({kMargin, kMargin + 44},
             formatted("%d drawn, from (%.6g, %.6g) to (%.6g, %.6g)", count, box_->ul().x(), box_->ul().y(),
                       box_->lr().x(), box_->lr().y()),
             "");
    svg.rect(at, inner.x(), inner.y(), "panel");
    svg.beginClip(at, inner.x(), inner.y());
    for (const auto* items : {&images_, &shapes_})
      for (const Item& item : *items) drawItem(svg, item, onPage, page);
    const double length = roundLength(inner.x() / 4 / zoom);
    svg.scaleBar({at.x() + 16, at.y() + inner.y() - 18}, length * zoom, formatted("%g", length));
    svg.endClip();
    axes(svg, page, onPage);
    list(svg, {at.x() + inner.x() + kMargin, at.y() + 14});
    result_.svg = svg.finished();
  }

  void drawItem(Svg& svg, const Item& item, const qcXform<2>& onPage, const qcRect& page) {
    try {
      item.draw(svg, onPage, page);
    } catch (const qcException& error) {
      --result_.drawn[item.kind];
      skip(item.kind, qf_Narrow(error.message(false)));
    }
  }

  void axes(Svg& svg, const qcRect& page, const qcXform<2>& onPage) {
    const qcVector<2> low = onPage.invMapPoint(page.ul()), high = onPage.invMapPoint(page.lr());
    std::vector<Chain> ticks;
    for (const int axis : {0, 1}) {
      const double step = roundLength(page.size()[axis] / onPage.matrix().element(0, 0) / 4);
      const double first = std::ceil(low[axis] / step);
      for (int i = 0; i < 20 && (first + i) * step <= high[axis]; ++i) {
        const double value = (first + i) * step;
        const qcVector<2> p = onPage * qcVector<2>(value, value);
        const std::string number = formatted("%.6g", value);
        if (axis == 0) {
          ticks.push_back({{p.x(), page.lr().y()}, {p.x(), page.lr().y() + 5}});
          svg.text({p.x(), page.lr().y() + 18}, number, "small middle");
        } else {
          ticks.push_back({{page.ul().x() - 5, p.y()}, {page.ul().x(), p.y()}});
          svg.text({page.ul().x() - 8, p.y() + 4}, number, "small end");
        }
      }
    }
    svg.path(svgPath(ticks), "axis");
  }

  void list(Svg& svg, qcVector<2> at) const {
    const auto row = [&](const std::string& name, int count) {
      svg.text(at + qcVector<2>(32, 0), count == 1 ? name : name + formatted(" x %d", count), "");
      at += qcVector<2>(0, 24);
    };
    for (const auto& [name, count] : result_.drawn) {
      if (count == 0) continue;
      if (const auto colour = colours_.find(name); colour != colours_.end())
        svg.dot(at + qcVector<2>(12, -4), 6, colour->second);
      else
        svg.rect(at + qcVector<2>(5, -10), 14, 12, "panel");
      row(name, count);
    }
    if (result_.skipped.empty()) return;
    svg.text(at + qcVector<2>(0, 8), "not drawn", "small");
    at += qcVector<2>(0, 32);
    for (const auto& [name, count] : result_.skipped) row(name, count);
  }

  std::string path_;
  Rendering result_;
  std::vector<Item> images_, shapes_;  // images lie below
  std::map<std::string, std::string> colours_;
  std::optional<qcRect> box_;
  long weight_ = 0;  // of the shapes so far
};

}  // namespace

std::string shapeMarkup(const qcShape& shape, const qcXform<2>& pageFromShape, const qcRect& page,
                        const std::string& colour, const std::string& tip) {
  const auto mapped = shape.mapShape(pageFromShape);
  const std::string fill = shape.isRegion()
                               ? "fill-opacity=\"0.14\" fill-rule=\"evenodd\" style=\"fill: " + colour + "\""
                               : std::string("fill=\"none\"");
  const std::string style = fill + " stroke=\"" + colour + '"';
  if (const auto* circle = dynamic_cast<const qcCircle*>(mapped.rep()); circle && !circle->degen())
    return cased("circle",
                 attribute("cx", circle->center().x()) + attribute("cy", circle->center().y()) +
                     attribute("r", circle->radius()),
                 style, tip);
  if (const auto* ellipse = dynamic_cast<const qcEllipse2*>(mapped.rep()); ellipse && !ellipse->isDegenerate())
    return cased("ellipse",
                 attribute("rx", ellipse->radii().x()) + attribute("ry", ellipse->radii().y()) +
                     formatted(" transform=\"translate(%.3f %.3f) rotate(%.4f)\"", ellipse->center().x(),
                               ellipse->center().y(), qcDegree(ellipse->angle()).plain()),
                 style, tip);
  if (const auto* arc = dynamic_cast<const qcEllipseArc2*>(mapped.rep()); arc && !arc->ellipse().isDegenerate())
    return cased("path", attribute("d", arcPath(*arc)), style, tip);
  const std::vector<Chain> chains =
      mapped->isFinite() ? chainsOf(*mapped, kTolerance) : std::vector<Chain>{inSight(*mapped, page)};
  std::string markup;
  for (const Chain& chain : chains)  // points stand alone
    if (std::all_of(chain.begin(), chain.end(), [&](const qcVector<2>& p) { return p == chain.front(); }))
      markup += cased("circle", attribute("cx", chain.front().x()) + attribute("cy", chain.front().y()) + " r=\"2.5\"",
                      style, tip);
  return markup + cased("path", attribute("d", svgPath(chains)), style, tip);
}

Rendering renderArchive(const std::string& path) {
  requireKind(path, FileKind::archive);
  return onFile(path, [&](const std::wstring&) { return Renderer(path)(); });
}
