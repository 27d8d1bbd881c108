// libsodium, made ready before its first use.
#pragma once

namespace qvr {

// Picks the implementations for this processor. Whatever draws libsodium's random numbers or locks
// memory calls this first (sealing does so by the keys it takes, which are SecretBytes); only the
// first call does anything.
void initializeSodium();

}  // namespace qvr
