// What every test needs.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <numbers>
#include <numeric>
#include <optional>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <tuple>
#include <typeinfo>
#include <vector>

/// Whether the address sanitizer is built in: then frames are several times as large, and unwinding and forks are slow.
#ifdef __SANITIZE_ADDRESS__
constexpr bool kInstrumented = true;
#else
constexpr bool kInstrumented = false;
#endif
