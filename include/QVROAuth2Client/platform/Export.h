// The visibility of public symbols. Everything is built hidden; what hosts use carries QVR_EXPORT.
#pragma once

#if defined(__GNUC__)
#define QVR_EXPORT __attribute__((visibility("default")))
#else
#define QVR_EXPORT
#endif
