// Whether the build runs under AddressSanitizer: gcc says so with
// __SANITIZE_ADDRESS__, clang only through __has_feature.
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
