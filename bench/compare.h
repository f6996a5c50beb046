// A small harness that sets this library beside its peers in one process and prints ratios.
//
//   int main(int argc, char** argv) {
//     compare::Session session(argc, argv);
//     session.peer("OpenCV", CV_VERSION);             // or session.absent("OpenCV") where it is not installed
//     session.run("copy, 8 bit", 1.05, [&] { ours(); }, [&] { theirs(); });
//     return session.finish();
//   }
//
// Both sides are timed alternately, nine repetitions each after one that is thrown away, every repetition long enough
// for the clock. The times printed are medians per call; the ratio is the median of the nine ratios of neighbouring
// repetitions, which a slow spell of the machine cannot tilt. Touch destinations before the run: a first write to fresh
// pages costs more than twenty later ones. Options: --quick calls each side once (so that benchmarks run under the
// tests), --filter=TEXT runs only the comparisons whose name contains TEXT.
#pragma once

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <fstream>
#include <string>
#include <string_view>

namespace compare {

/// Makes the optimiser believe that the value is used, and that any memory may have been read or changed.
template <class T>
inline void keep(const T& value) {
  asm volatile("" : : "r"(&value) : "memory");
}

/// One benchmark program: options, the head of the table, its rows and the closing line.
class Session {
 public:
  Session(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
      const std::string_view option(argv[i]);
      if (option == "--quick") {
        quick_ = true;
      } else if (option.starts_with("--filter=")) {
        filter_ = option.substr(9);
      } else {
        std::fprintf(stderr, "usage: %s [--quick] [--filter=TEXT]\n", argv[0]);
        valid_ = false;
      }
    }
    std::printf("processor: %s\ncompiler:  %s\n", processor().c_str(), compiler().c_str());
  }

  bool quick() const { return quick_; }

  /// Names a peer and the version that it was measured in.
  void peer(const char* name, const char* version) { std::printf("peer:      %s %s\n", name, version); }

  /// Says that a peer is left out.
  void absent(const char* name) { std::printf("peer:      %s is not installed: its comparisons are left out\n", name); }

  /// Times ours against theirs and prints a row; goal is the largest ratio wanted, 0 for none.
  template <class Ours, class Theirs>
  void run(const std::string& name, double goal, Ours&& ours, Theirs&& theirs) {
    if (!wanted(name)) return;
    if (quick_) {
      ours();
      theirs();
      std::printf("%s: ran\n", name.c_str());
      return;
    }
    const long oursCalls = calls(ours);
    const long theirsCalls = calls(theirs);
    std::array<double, kRepetitions> a{}, b{}, ratio{};
    for (int i = -1; i < kRepetitions; ++i) {  // the repetition before the first warms up
      const double oursTime = seconds(ours, oursCalls) / static_cast<double>(oursCalls);
      const double theirsTime = seconds(theirs, theirsCalls) / static_cast<double>(theirsCalls);
      if (i < 0) continue;
      const auto k = static_cast<std::size_t>(i);
      a[k] = oursTime;
      b[k] = theirsTime;
      ratio[k] = oursTime / theirsTime;
    }
    row(name, goal, median(a), median(b), median(ratio));
  }

  /// Times ours alone.
  template <class Ours>
  void run(const std::string& name, Ours&& ours) {
    if (!wanted(name)) return;
    if (quick_) {
      ours();
      std::printf("%s: ran\n", name.c_str());
      return;
    }
    const long count = calls(ours);
    std::array<double, kRepetitions> a{};
    for (double& time : a) time = seconds(ours, count) / static_cast<double>(count);
    head();
    std::printf("%-44s %12s %12s\n", name.c_str(), text(median(a)).c_str(), "-");
    ++rows_;
  }

  /// The exit status of the program: 2 after a wrong option, else 0. A goal that is missed is a matter for the reader.
  int finish() const {
    if (valid_ && !quick_) std::printf("%d comparisons, %d over their goal\n", rows_, missed_);
    return valid_ ? 0 : 2;
  }

 private:
  static constexpr int kRepetitions = 9;
  static constexpr double kShortest = 0.02;  // seconds of one repetition

  bool wanted(const std::string& name) const { return valid_ && name.find(filter_) != std::string::npos; }

  static double now() {
#if defined(CLOCK_THREAD_CPUTIME_ID)
    std::timespec time;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
#else
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
#endif
  }

  template <class Body>
  static double seconds(Body& body, long count) {
    const double start = now();
    for (long i = 0; i < count; ++i) body();
    return now() - start;
  }

  template <class Body>
  static long calls(Body& body) {
    for (long count = 1;; count *= 2) {
      const double time = seconds(body, count);
      if (time >= kShortest / 2) return std::max(1L, static_cast<long>(static_cast<double>(count) * kShortest / time));
    }
  }

  static double median(std::array<double, kRepetitions> values) {
    std::nth_element(values.begin(), values.begin() + kRepetitions / 2, values.end());
    return values[kRepetitions / 2];
  }

  static std::string text(double time) {
    char buffer[32];
    const bool micro = time >= 1e-6, milli = time >= 1e-3;
    std::snprintf(buffer, sizeof buffer, "%.2f %s",
                  time * (milli   ? 1e3
                          : micro ? 1e6
                                  : 1e9),
                  milli   ? "ms"
                  : micro ? "us"
                          : "ns");
    return buffer;
  }

  void head() {
    if (rows_ == 0) std::printf("%-44s %12s %12s %8s %6s\n", "comparison", "ours", "theirs", "ratio", "goal");
  }

  void row(const std::string& name, double goal, double ours, double theirs, double ratio) {
    head();
    ++rows_;
    const bool missed = goal > 0 && ratio > goal;
    if (missed) ++missed_;
    char goalText[16] = "-";
    if (goal > 0) std::snprintf(goalText, sizeof goalText, "%.2f", goal);
    std::printf("%-44s %12s %12s %8.3f %6s%s\n", name.c_str(), text(ours).c_str(), text(theirs).c_str(), ratio,
                goalText, missed ? "  over" : "");
    std::fflush(stdout);
  }

  static std::string processor() {
    std::ifstream info("/proc/cpuinfo");
    for (std::string line; std::getline(info, line);) {
      const std::size_t colon = line.find(": ");
      if (line.starts_with("model name") && colon != std::string::npos) return line.substr(colon + 2);
    }
    return "unknown";
  }

  static std::string compiler() {
#if defined(__clang__)
    return __VERSION__;
#elif defined(__GNUC__)
    return "g++ " __VERSION__;
#else
    return "unknown";
#endif
  }

  bool quick_ = false;
  bool valid_ = true;
  std::string filter_;
  int rows_ = 0;
  int missed_ = 0;
};

}  // namespace compare
