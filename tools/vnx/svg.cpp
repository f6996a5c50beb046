#include "svg.h"

#include <algorithm>
#include <cmath>

#include "format.h"
#include "json.h"
#include "pngfile.h"

namespace {

constexpr const char* kStyle = R"(
  text { font-family: "DejaVu Sans", "Segoe UI", Helvetica, Arial, sans-serif; font-size: 13px; fill: #c9d1d9 }
  .title { font-size: 19px; font-weight: bold; fill: #f0f6fc }
  .small { font-size: 11px; fill: #8b949e }
  .end { text-anchor: end }
  .middle { text-anchor: middle }
  .page { fill: #0d1117 }
  .panel { fill: #161b22; stroke: #30363d }
  .axis { stroke: #484f58; fill: none }
  .band { fill: #388bfd; fill-opacity: 0.16 }
  path { fill: none; stroke-linejoin: round; stroke-linecap: round }
  .region { stroke: #58a6ff; stroke-width: 1.8 }
  .scan { stroke: #00c2d4; stroke-width: 1; stroke-opacity: 0.6 }
  .fit { stroke: #ffd33d; stroke-width: 2 }
  .rejected { stroke: #ff4d9d; stroke-width: 1.8 }
  .bar { stroke: #ffffff; stroke-width: 2 }
  .casing { stroke: #000000; stroke-width: 4.4; stroke-opacity: 0.65 }
  .dot { stroke: #000000; stroke-width: 1 }
  .onimage { fill: #ffffff; font-weight: bold }
  .halo { stroke: #000000; stroke-width: 3.5px; stroke-opacity: 0.7; stroke-linejoin: round; font-weight: bold }
)";

std::string withTip(const std::string& element, std::string_view name, std::string_view tip) {
  if (tip.empty()) return element + "/>\n";
  return element + "><title>" + escaped(tip) + "</title></" + std::string(name) + ">\n";
}

std::string placed(const qcVector<2>& at) { return " x=\"" + svgNumber(at.x()) + "\" y=\"" + svgNumber(at.y()) + '"'; }

}  // namespace

std::string escaped(std::string_view text) {
  std::string result;
  for (const char c : lineText(text)) {
    if (c == '&')
      result += "&amp;";
    else if (c == '<')
      result += "&lt;";
    else if (c == '>')
      result += "&gt;";
    else if (c == '"')
      result += "&quot;";
    else
      result += c;
  }
  return result;
}

std::string svgNumber(double value) {
  std::string text = formatted("%.2f", std::clamp(value, -1e6, 1e6));
  text.erase(text.find_last_not_of('0') + 1);
  if (text.back() == '.') text.pop_back();
  return text == "-0" ? "0" : text;
}

std::string svgPath(const std::vector<Chain>& chains) {
  std::string data;
  for (const Chain& chain : chains) {
    const bool isGood = std::all_of(chain.begin(), chain.end(),
                                    [](const qcVector<2>& p) { return std::isfinite(p.x()) && std::isfinite(p.y()); });
    if (!isGood || chain.empty()) continue;
    const bool isClosed = chain.size() > 2 && chain.front() == chain.back();
    std::string last;
    for (std::size_t i = 0; i + (isClosed ? 1 : 0) < chain.size(); ++i) {
      std::string point = svgNumber(chain[i].x()) + ' ' + svgNumber(chain[i].y());
      if (point == last && i > 1) continue;
      data += (i == 0 ? 'M' : 'L') + point;
      last = std::move(point);
    }
    if (isClosed) data += 'Z';
  }
  return data;
}

Svg::Svg(double width, double height, std::string_view title) {
  const std::string w = svgNumber(width), h = svgNumber(height);
  text_ =
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<svg xmlns=\"http://www.w3.org/2000/svg\" "
      "xmlns:xlink=\"http://www.w3.org/1999/xlink\" width=\"" +
      w + "\" height=\"" + h + "\" viewBox=\"0 0 " + w + ' ' + h + "\">\n<title>" + escaped(title) +
      "</title>\n<style>" + kStyle + "</style>\n";
  rect({0, 0}, width, height, "page");
}

void Svg::path(std::string_view data, std::string_view kind) {
  if (!data.empty()) text_ += "<path class=\"" + std::string(kind) + "\" d=\"" + std::string(data) + "\"/>\n";
}

void Svg::casedPath(std::string_view data, std::string_view kind, std::string_view tip) {
  if (data.empty()) return;
  path(data, "casing " + std::string(kind));
  text_ += withTip("<path class=\"" + std::string(kind) + "\" d=\"" + std::string(data) + '"', "path", tip);
}

void Svg::text(const qcVector<2>& at, std::string_view words, std::string_view kind) {
  text_ += "<text class=\"" + std::string(kind) + '"' + placed(at) + '>' + escaped(words) + "</text>\n";
}

void Svg::casedText(const qcVector<2>& at, std::string_view words, std::string_view kind) {
  text(at, words, "halo " + std::string(kind));
  text(at, words, "onimage " + std::string(kind));
}

void Svg::dot(const qcVector<2>& at, double radius, std::string_view colour, std::string_view tip) {
  if (std::isnan(at.x()) || std::isnan(at.y())) return;
  text_ += withTip("<circle class=\"dot\" cx=\"" + svgNumber(at.x()) + "\" cy=\"" + svgNumber(at.y()) + "\" r=\"" +
                       svgNumber(radius) + (radius < 2 ? "\" style=\"stroke: none" : "") + "\" fill=\"" +
                       std::string(colour) + '"',
                   "circle", tip);
}

void Svg::cross(const qcVector<2>& at, double arm, std::string_view kind) {
  const qcVector<2> down(arm, arm), up(arm, -arm);
  casedPath(svgPath({{at - down, at + down}, {at - up, at + up}}), kind);
}

void Svg::rect(const qcVector<2>& at, double width, double height, std::string_view kind) {
  text_ += "<rect class=\"" + std::string(kind) + '"' + placed(at) + " width=\"" + svgNumber(width) + "\" height=\"" +
           svgNumber(height) + "\"/>\n";
}

void Svg::image(const std::string& png, long width, long height, const qcXform<2>& place) {
  const qcMatrix<2>& m = place.matrix();
  text_ += formatted("<image width=\"%ld\" height=\"%ld\" preserveAspectRatio=\"none\" ", width, height) +
           formatted("transform=\"matrix(%.9g %.9g %.9g %.9g %.9g %.9g)\" ", m.element(0, 0), m.element(1, 0),
                     m.element(0, 1), m.element(1, 1), place.trans().x(), place.trans().y()) +
           "style=\"image-rendering: pixelated\" xlink:href=\"data:image/png;base64," + base64(png) + "\"/>\n";
}

void Svg::scaleBar(const qcVector<2>& at, double length, std::string_view label) {
  const qcVector<2> end = at + qcVector<2>(length, 0), tick(0, 5);
  casedPath(svgPath({{at - tick, at + tick}, {at, end}, {end - tick, end + tick}}), "bar");
  casedText({at.x() + length / 2, at.y() - 10}, label, "middle");
}

void Svg::beginClip(const qcVector<2>& at, double width, double height) {
  const std::string name = formatted("clip%d", ++clips_);
  text_ += "<clipPath id=\"" + name + "\">";
  rect(at, width, height, "clip");
  text_ += "</clipPath>\n<g clip-path=\"url(#" + name + ")\">\n";
}

void Svg::endClip() { text_ += "</g>\n"; }

double roundLength(double limit) {
  const double decade = std::pow(10, std::floor(std::log10(limit)));
  for (const double digit : {5.0, 2.0})
    if (digit * decade <= limit) return digit * decade;
  return decade;
}

bool isSvg(const std::string& path) {
  std::string end = path.size() < 4 ? path : path.substr(path.size() - 4);
  std::transform(end.begin(), end.end(), end.begin(), [](char c) { return c >= 'A' && c <= 'Z' ? char(c + 32) : c; });
  return end == ".svg";
}
