#pragma once

// Memory that the program holds but the driver must not touch. Under AddressSanitizer touching it
// ends the program; other builds do nothing.

#if defined(__SANITIZE_ADDRESS__)
#define EMBEDDED_ASAN
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define EMBEDDED_ASAN
#endif
#endif
#ifdef EMBEDDED_ASAN
#include <sanitizer/asan_interface.h>
#else
#define ASAN_POISON_MEMORY_REGION(address, size) ((void)(address), (void)(size))
#define ASAN_UNPOISON_MEMORY_REGION(address, size) ((void)(address), (void)(size))
#endif
