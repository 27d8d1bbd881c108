#include <algorithm>
#include <numeric>
#include <vector>

#include "src/platform/JSONReaders.h"

namespace qvr {
namespace {

// Up to here comparing every two keys is quicker than sorting.
constexpr std::size_t kFewMembers = 16;

// Marks the later ones of equal keys among a few.
void markRepeatsPairwise(const Value::Object& object, std::vector<bool>& isRepeat) {
  for (std::size_t later = 1; later < object.size(); ++later) {
    isRepeat[later] = std::any_of(
        object.begin(), object.begin() + static_cast<std::ptrdiff_t>(later),
        [&](const Value::Member& earlier) { return earlier.first == object[later].first; });
  }
}

// Marks them among many: a sender must not make us compare every two of a million keys.
void markRepeatsSorted(const Value::Object& object, std::vector<bool>& isRepeat) {
  std::vector<std::size_t> order(object.size());
  std::iota(order.begin(), order.end(), std::size_t{0});
  std::sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) {
    const int comparison = object[a].first.compare(object[b].first);
    return comparison != 0 ? comparison < 0 : a < b;
  });
  for (std::size_t i = 1; i < order.size(); ++i) {
    isRepeat[order[i]] = object[order[i]].first == object[order[i - 1]].first;
  }
}

}  // namespace

void keepFirstOfEqualKeys(Value::Object& object) {
  if (object.size() < 2) return;
  std::vector<bool> isRepeat(object.size());
  if (object.size() <= kFewMembers) {
    markRepeatsPairwise(object, isRepeat);
  } else {
    markRepeatsSorted(object, isRepeat);
  }
  std::size_t kept = 0;
  for (std::size_t i = 0; i < object.size(); ++i) {
    if (isRepeat[i]) continue;
    if (kept != i) object[kept] = std::move(object[i]);
    ++kept;
  }
  object.resize(kept);
}

}  // namespace qvr
