// What the keychain writer stores in turn; of different lengths, so that a mixture would show.
#pragma once

#include <string>

namespace ports_test {

inline std::string oldValue() {
  return std::string(3000, 'o');
}
inline std::string newValue() {
  return std::string(9000, 'n');
}

}  // namespace ports_test
