// The counted root class and its smart pointer.
//
// Thread rule: counts are atomic; an object may be shared between threads as far as its own class
// allows. A new object has a count of one, which makeRef() hands to the Ref it returns.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <type_traits>
#include <utility>

#include "QVROAuth2Client/platform/Export.h"

namespace qvr {
inline namespace v1 {

class QVR_EXPORT Object {
 public:
  Object(const Object&) = delete;
  Object& operator=(const Object&) = delete;

  // Adds a reference. Does nothing on an immortal object.
  void retain() const noexcept;

  // Drops a reference and destroys the object with its last one. Does nothing on an immortal
  // object.
  void release() const noexcept;

  // The number of references; all bits set for an immortal object. For diagnostics only.
  std::size_t retainCount() const noexcept;

 protected:
  Object() noexcept = default;
  virtual ~Object();

  // From here on retain and release do nothing. Call it before the object is shared.
  void makeImmortal() noexcept;

 private:
  mutable std::atomic<std::size_t> retainCount_{1};
};

// A counted pointer to T, which derives from Object (T may be const). Null when empty. Compares by
// identity: two Refs are equal when they point to the same object.
template <class T>
class Ref {
 public:
  using element_type = T;

  constexpr Ref() noexcept = default;
  constexpr Ref(std::nullptr_t) noexcept {}  // NOLINT(google-explicit-constructor)
  Ref(const Ref& other) noexcept : Ref(other.pointer_, Retain{}) {}
  Ref(Ref&& other) noexcept : pointer_(std::exchange(other.pointer_, nullptr)) {}

  template <class U>
  requires std::is_convertible_v<U*, T*> Ref(const Ref<U>& other)
  noexcept  // NOLINT(google-explicit-constructor)
      : Ref(other.get(), Retain{}) {}

  template <class U>
  requires std::is_convertible_v<U*, T*> Ref(Ref<U>&& other)
  noexcept  // NOLINT(google-explicit-constructor)
      : pointer_(other.leak()) {}

  ~Ref() {
    if (pointer_ != nullptr) pointer_->release();
  }

  Ref& operator=(Ref other) noexcept {
    std::swap(pointer_, other.pointer_);
    return *this;
  }

  // Takes over a reference that the caller owns.
  [[nodiscard]] static Ref adopt(T* pointer) noexcept { return Ref(pointer, Adopt{}); }

  // Adds a reference of its own.
  [[nodiscard]] static Ref retain(T* pointer) noexcept { return Ref(pointer, Retain{}); }

  T* get() const noexcept { return pointer_; }
  T* operator->() const noexcept { return pointer_; }
  T& operator*() const noexcept { return *pointer_; }
  explicit operator bool() const noexcept { return pointer_ != nullptr; }

  // Gives the reference up without dropping it; the caller owns it from here on.
  [[nodiscard]] T* leak() noexcept { return std::exchange(pointer_, nullptr); }

  friend bool operator==(const Ref& a, const Ref& b) noexcept { return a.pointer_ == b.pointer_; }
  friend bool operator==(const Ref& a, std::nullptr_t) noexcept { return a.pointer_ == nullptr; }

 private:
  struct Adopt {};
  struct Retain {};
  Ref(T* pointer, Adopt) noexcept : pointer_(pointer) {}
  Ref(T* pointer, Retain) noexcept : pointer_(pointer) {
    if (pointer_ != nullptr) pointer_->retain();
  }

  T* pointer_ = nullptr;
};

// Makes a T that the returned Ref alone owns.
template <class T, class... Arguments>
[[nodiscard]] Ref<T> makeRef(Arguments&&... arguments) {
  return Ref<T>::adopt(new T(std::forward<Arguments>(arguments)...));
}

}  // namespace v1
}  // namespace qvr
