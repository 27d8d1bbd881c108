// A C++ program that does nothing but print how much memory it has resident.
#include <cstdio>

#include "bench/Memory.h"

int main() {
  std::printf("%zu\n", qvr::bench::residentBytes());
}
