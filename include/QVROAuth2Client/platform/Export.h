// The visibility of public symbols. Everything is built hidden; what hosts use carries QVR_EXPORT,
// and what an exported class keeps to itself QVR_HIDDEN.
#pragma once

#if defined(__GNUC__)
#define QVR_EXPORT __attribute__((visibility("default")))
#define QVR_HIDDEN __attribute__((visibility("hidden")))
#else
#define QVR_EXPORT
#define QVR_HIDDEN
#endif
