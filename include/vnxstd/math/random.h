// A reproducible pseudo-random generator with a uniform and a Gaussian face.
#pragma once

#include <cstdint>

#include "vnxstd/export.h"

class qcArchive;

/// The state of the generator, for callers that keep it in a plain structure: three linear congruences, of which two
/// make the numbers and the third shuffles them through a table (Numerical Recipes in C, first
/// edition, section 7.1, "ran1").
struct qsRandomUniform {
  static constexpr int kTableSize = 97;

  std::int32_t seed;    ///< the seed last given
  std::uint32_t count;  ///< numbers drawn since then, modulo 2^32
  std::int32_t ix1, ix2, ix3;
  double table[kTableSize];

  friend bool operator==(const qsRandomUniform&, const qsRandomUniform&) = default;
};

/// Starts the sequence of a seed. Every seed is allowed.
VNXSTD_EXPORT void qsRandomUniformInit(qsRandomUniform& state, std::int32_t seed);

/// Draws the next number r, uniform in [0, 1), and returns low + (high - low) * r. That lies in [low, high) but for
/// rounding, which can reach high when the interval is only a few representable numbers wide. The state must have been
/// started by qsRandomUniformInit.
VNXSTD_EXPORT double qsRandomUniformNext(qsRandomUniform& state, double low, double high);

/// A uniform generator. The seed alone decides the sequence, on every platform. For one thread at a time. Not for
/// cryptography: numbers have a granularity of about 3e-11, and the sequence repeats.
class VNXSTD_EXPORT qcRandomUniform {
 public:
  /// The generator of the seed 1, and of any other.
  qcRandomUniform() : qcRandomUniform(1) {}
  explicit qcRandomUniform(std::int32_t seed) { reseed(seed); }

  void reseed(std::int32_t seed) { qsRandomUniformInit(state_, seed); }
  /// As qsRandomUniformNext.
  double next(double low, double high) { return qsRandomUniformNext(state_, low, high); }

  std::int32_t seed() const { return state_.seed; }
  std::uint32_t count() const { return state_.count; }

  /// True when the generators have the same seed, draw count and state, so that their futures are the same.
  friend bool operator==(const qcRandomUniform&, const qcRandomUniform&) = default;

  /// Stores or loads a version byte (0), the seed and the number of draws since (32 bits each). A generator that was
  /// stored and loaded continues with the same numbers; the time that loading takes does not depend on the number
  /// of draws. After 2^32 draws the count starts again at 0, and a stored generator is no longer restored exactly.
  /// Another version throws qcArchive::UnknownVersion; the generator is then as it was.
  friend VNXSTD_EXPORT qcArchive& operator||(qcArchive& archive, qcRandomUniform& random);

 private:
  qsRandomUniform state_;
};

/// A generator of approximately normal numbers: each is a sum of 100 uniform draws, and so never more than 17.4
/// standard deviations from the mean. For one thread at a time.
class VNXSTD_EXPORT qcRandomGaussian {
 public:
  /// The generator of the seed 1, and of any other.
  qcRandomGaussian() = default;
  explicit qcRandomGaussian(std::int32_t seed) : uniform_(seed) {}

  void reseed(std::int32_t seed) { uniform_.reseed(seed); }
  /// A number of the given standard deviation (first) and mean (second): draws 100 numbers, uniform in [0, 1), of
  /// sum S and returns (2S - 100) * sqrt(0.03) * deviation + mean.
  double next(double deviation, double mean);

  friend bool operator==(const qcRandomGaussian&, const qcRandomGaussian&) = default;

  /// Stores or loads a version byte (0) and the uniform generator behind this one.
  friend VNXSTD_EXPORT qcArchive& operator||(qcArchive& archive, qcRandomGaussian& random);

 private:
  qcRandomUniform uniform_;
};
