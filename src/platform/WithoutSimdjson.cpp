// In place of JSONPlainReader.cpp, for a program that must start quickly and reads hardly any JSON:
// the lenient reader reads whatever the fast one does, and no shared C++ library has to be loaded.
#include "src/platform/JSONReaders.h"

namespace qvr {

std::optional<Value> readPlainJSON(std::span<const std::uint8_t>, const JSONNames&) {
  return std::nullopt;
}

}  // namespace qvr
