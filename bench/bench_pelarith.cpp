// Pel-wise functions beside OpenCV, single thread, images of 2048 x 2048 pels unless said. --baseline and --avx2 force
// a lower instruction-set level.
#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "compare.h"
#include "pelimages.h"
#include "vnxstd/pelbuf.h"

namespace {

using namespace pelimages;

#if defined(VNXSTD_BENCH_OPENCV)

template <class T>
constexpr int kDepth = CV_8U;
template <>
constexpr int kDepth<unsigned short> = CV_16U;
template <>
constexpr int kDepth<short> = CV_16S;
template <>
constexpr int kDepth<long> = CV_32S;
template <>
constexpr int kDepth<float> = CV_32F;

/// Two sources and a destination on either side.
template <class S, class D>
struct Pair {
  explicit Pair(long side) : a(noise<S>(side)), b(noise<S>(side)), to(touched<D>(side)), other(touched<D>(side)) {}

  Image<S> a, b;
  Image<D> to, other;
  cv::Mat first = asMat(a, kDepth<S>), second = asMat(b, kDepth<S>), result = asMat(other, kDepth<D>);
};

template <class S, class D, class Ours, class Theirs>
void beside(compare::Session& session, const std::string& name, double goal, Ours ours, Theirs theirs,
            long side = kSide) {
  Pair<S, D> images(side);
  session.run(
      name, goal, [&] { ours(images.a, images.b, images.to); },
      [&] { theirs(images.first, images.second, images.result); });
}

template <class T>
void sameType(compare::Session& session, const std::string& type, double goal, double shifted, long side = kSide) {
  beside<T, T>(
      session, "add, " + type, goal, [](auto& a, auto& b, auto& to) { qfPelAdd(a, b, to); },
      [](auto& a, auto& b, auto& to) { cv::add(a, b, to); }, side);
  beside<T, T>(
      session, "subtract, " + type, goal, [](auto& a, auto& b, auto& to) { qfPelSub(a, b, to); },
      [](auto& a, auto& b, auto& to) { cv::subtract(a, b, to); }, side);
  beside<T, T>(
      session, "max, " + type, goal, [](auto& a, auto& b, auto& to) { qfPelMax(a, b, to); },
      [](auto& a, auto& b, auto& to) { cv::max(a, b, to); }, side);
  beside<T, T>(
      session, "multiply with shift, " + type, shifted, [](auto& a, auto& b, auto& to) { qfPelMult(a, b, to, 8); },
      [](auto& a, auto& b, auto& to) { cv::multiply(a, b, to, 1.0 / 256); }, side);
}

void widening(compare::Session& session) {
  using U8 = unsigned char;
  using U16 = unsigned short;
  beside<U8, U16>(
      session, "add, 8 to 16 bits", 0.2, [](auto& a, auto& b, auto& to) { qfPelAdd(a, b, to); },
      [](auto& a, auto& b, auto& to) { cv::add(a, b, to, cv::noArray(), CV_16U); });
  beside<U8, U16>(
      session, "multiply, 8 to 16 bits", 0.2, [](auto& a, auto& b, auto& to) { qfPelMult(a, b, to); },
      [](auto& a, auto& b, auto& to) { cv::multiply(a, b, to, 1, CV_16U); });
  beside<U8, U16>(
      session, "square, 8 to 16 bits", 0.2, [](auto& a, auto&, auto& to) { qfPelSquare(a, to); },
      [](auto& a, auto&, auto& to) { cv::multiply(a, a, to, 1, CV_16U); });
  beside<U8, float>(
      session, "accumulate squares, 8 bit to float", 0, [](auto& a, auto&, auto& to) { qfPelSquareAccum(a, to); },
      [](auto& a, auto&, auto& to) { cv::accumulateSquare(a, to); });
  beside<U8, float>(
      session, "multiply and add, 8 bit to float", 0, [](auto& a, auto& b, auto& to) { qfPelMultAdd(a, b, to, to); },
      [](auto& a, auto& b, auto& to) { cv::accumulateProduct(a, b, to); });
}

void invert(compare::Session& session, long side) {
  beside<unsigned char, unsigned char>(
      session, "invert, 8 bit" + std::string(side == kSide ? "" : ", small"), side == kSide ? 1.0 : 0.4,
      [](auto& a, auto&, auto& to) { qfPelInvert_U8(a, to); }, [](auto& a, auto&, auto& to) { cv::bitwise_not(a, to); },
      side);
}

template <class S, class D>
void divide(compare::Session& session, const std::string& type, double goal, double divideGoal, double divisor,
            bool isRounded) {
  beside<S, D>(
      session, "divide by value, " + type + " / convertTo", goal,
      [=](auto& a, auto&, auto& to) { qfPelDivideByVal(a, to, divisor, isRounded); },
      [=](auto& a, auto&, auto& to) { a.convertTo(to, to.type(), 1 / divisor); });
  beside<S, D>(
      session, "divide by value, " + type + " / divide", divideGoal,
      [=](auto& a, auto&, auto& to) { qfPelDivideByVal(a, to, divisor, isRounded); },
      [=](auto& a, auto&, auto& to) { cv::divide(a, cv::Scalar(divisor), to, 1, to.type()); });
}

void deviation(compare::Session& session) {
  const Image<long> sums = noise<long>();
  Image<float> squares32 = touched<float>(), to = touched<float>();
  Image<unsigned long> squares(kSide, kSide);
  qfPelSet(squares, 4000000000UL);
  const cv::Mat first = asMat(sums, CV_32S);
  cv::Mat second = asMat(squares32, CV_32F), result;
  session.run(
      "standard deviation, 32 bit to float / convert, sqrt", 0, [&] { qfPelStandardDeviation(sums, squares, 30, to); },
      [&] {
        first.convertTo(second, CV_32F);
        cv::sqrt(second, result);
      });
}

void map(compare::Session& session, long side, double goal) {
  std::vector<unsigned char> table(256);
  for (std::size_t i = 0; i < table.size(); ++i) table[i] = static_cast<unsigned char>(i * i / 255);
  const cv::Mat other(1, 256, CV_8U, table.data());
  beside<unsigned char, unsigned char>(
      session, "map, 8 bit, " + std::to_string(side) + " x " + std::to_string(side), goal,
      [&](auto& a, auto&, auto& to) { qfPelMap(a, table, to); },
      [&](auto& a, auto&, auto& to) { cv::LUT(a, other, to); }, side);
}

#endif

}  // namespace

int main(int argc, char** argv) {
  compare::Session session = sessionAtLevel(argc, argv);
#if defined(VNXSTD_BENCH_OPENCV)
  cv::setNumThreads(1);
  session.peer("OpenCV", CV_VERSION);
  sameType<unsigned char>(session, "8 bit", 1.0, 0.4);
  sameType<unsigned short>(session, "16 bit", 1.0, 1.0);
  sameType<short>(session, "16 bit signed", 1.0, 1.0);
  sameType<long>(session, "32 bit signed", 0, 0);
  sameType<float>(session, "float", 1.0, 1.0);
  widening(session);
  invert(session, kSide);
  sameType<unsigned char>(session, "8 bit, 512 x 512", 1.0, 0.4, 512);
  sameType<unsigned short>(session, "16 bit, 256 x 256", 1.0, 0.6, 256);
  sameType<unsigned char>(session, "8 bit, 16 x 16", 0.4, 0, 16);
  invert(session, 16);
  divide<unsigned char, unsigned char>(session, "8 bit, 7", 0.25, 0.05, 7, true);
  divide<unsigned char, unsigned char>(session, "8 bit, 2.5", 0, 0, 2.5, true);
  divide<unsigned short, unsigned short>(session, "16 bit, 7", 0.6, 0, 7, true);
  divide<long, long>(session, "32 bit signed, 7", 0, 0, 7, true);
  divide<float, float>(session, "float, 7", 1.0, 0, 7, true);
  deviation(session);
  map(session, kSide, 0.7);
  map(session, 16, 0.4);
#else
  session.absent("OpenCV");
#endif
  return session.finish();
}
