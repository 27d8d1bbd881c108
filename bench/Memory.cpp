#include "bench/Memory.h"

#include <malloc.h>

#include <fstream>
#include <stdexcept>
#include <string>

namespace qvr::bench {

namespace {

// A line of /proc/self/status, in bytes.
std::size_t statusBytes(const std::string& name) {
  std::ifstream status("/proc/self/status");
  std::string word;
  std::size_t kilobytes = 0;
  while (status >> word) {
    if (word == name && status >> kilobytes) return kilobytes * 1024;
  }
  throw std::runtime_error("/proc/self/status has no " + name);
}

}  // namespace

std::size_t residentBytes() {
  return statusBytes("VmRSS:");
}

PeakMemory::PeakMemory() {
  malloc_trim(0);
  std::ofstream("/proc/self/clear_refs") << "5";  // the peak begins anew
  before_ = residentBytes();
}

double PeakMemory::bytes() const {
  return static_cast<double>(statusBytes("VmHWM:")) - static_cast<double>(before_);
}

}  // namespace qvr::bench
