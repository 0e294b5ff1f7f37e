// Whether the build runs under AddressSanitizer: gcc says so with
// __SANITIZE_ADDRESS__, clang only through __has_feature. Under it,
// NXXML_POISON marks memory that the library keeps but nobody may touch
// (a freed token parked for reuse), NXXML_UNPOISON hands it out again;
// elsewhere both are nothing.
#pragma once

#if defined(__SANITIZE_ADDRESS__)
#define NXXML_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define NXXML_ASAN 1
#endif
#endif
#ifndef NXXML_ASAN
#define NXXML_ASAN 0
#endif

#if NXXML_ASAN
#include <sanitizer/asan_interface.h>
#define NXXML_POISON(p, size) ASAN_POISON_MEMORY_REGION((p), (size))
#define NXXML_UNPOISON(p, size) ASAN_UNPOISON_MEMORY_REGION((p), (size))
#else
#define NXXML_POISON(p, size) ((void)(p), (void)(size))
#define NXXML_UNPOISON(p, size) ((void)(p), (void)(size))
#endif
