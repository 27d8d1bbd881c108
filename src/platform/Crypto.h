// The few cryptographic operations the rooms need; src/ports/ implements them.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace qvr {

std::array<std::uint8_t, 32> SHA256(std::span<const std::uint8_t> bytes);

// Standard base64 (RFC 4648 section 4), padded, on one line.
std::string base64Encoded(std::span<const std::uint8_t> bytes);

// Overwrites memory that held a secret; never optimised away.
void wipe(void* memory, std::size_t size);

}  // namespace qvr
