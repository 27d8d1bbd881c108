#include "QVROAuth2Client/platform/Object.h"

namespace qvr {
inline namespace v1 {

namespace {
constexpr std::size_t kImmortal = ~std::size_t{0};
}  // namespace

Object::~Object() = default;

void Object::retain() const noexcept {
  if (retainCount_.load(std::memory_order_relaxed) == kImmortal) return;
  retainCount_.fetch_add(1, std::memory_order_relaxed);
}

void Object::release() const noexcept {
  if (retainCount_.load(std::memory_order_relaxed) == kImmortal) return;
  // Everything done through other references happens before the destruction.
  if (retainCount_.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
}

std::size_t Object::retainCount() const noexcept {
  return retainCount_.load(std::memory_order_relaxed);
}

void Object::makeImmortal() noexcept {
  retainCount_.store(kImmortal, std::memory_order_relaxed);
}

}  // namespace v1
}  // namespace qvr
