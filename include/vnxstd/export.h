// Marks what the shared library offers to its users; everything else stays hidden.
#pragma once

#if defined(_WIN32) && defined(VNXSTD_BUILDING)
#define VNXSTD_EXPORT __declspec(dllexport)
#elif defined(_WIN32)
// The linker imports what a program leaves open. Where it is said to be imported, g++ takes the constants of a class to
// be in the library, too, which holds those alone that it uses the address of.
#define VNXSTD_EXPORT
#else
#define VNXSTD_EXPORT __attribute__((visibility("default")))
#endif
