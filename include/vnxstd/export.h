// Marks what the shared library offers to its users; everything else stays hidden.
#pragma once

#if defined(_WIN32)
#if defined(VNXSTD_BUILDING)
#define VNXSTD_EXPORT __declspec(dllexport)
#else
#define VNXSTD_EXPORT __declspec(dllimport)
#endif
#else
#define VNXSTD_EXPORT __attribute__((visibility("default")))
#endif
