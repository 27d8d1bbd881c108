// libsodium, made ready before its first use.
#pragma once

namespace qvr {

// Picks the implementations for this processor. Every file that calls libsodium for more than
// hashing and encoding calls this first; only the first call does anything.
void initializeSodium();

}  // namespace qvr
