// All process-wide state of the library: the host's settings, the seams made from them, and
// whatever a room keeps one of per process. One World lives as long as the process; nothing in it
// is torn down. A test replaces it by a ScopedWorld and so starts afresh.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "src/platform/HostSettings.h"
#include "src/platform/Mutex.h"

namespace qvr {

class World {
 public:
  using Settings = QVROAuth2Host::Settings;

  World();
  ~World();
  World(const World&) = delete;
  World& operator=(const World&) = delete;

  static World& current();

  // Takes the host's settings, or, after the first use, leaves them and raises
  // InternalInconsistencyException after the first use.
  void install(Settings&& settings);

  // The host's settings. The first call is the library's first use: nothing changes from then on.
  const Settings& settings();

  // The translation that the host gave for one of the library's texts, or the text itself.
  std::string_view localizedString(std::string_view text);

  // The host's seams, or the library's own ports, each made when it is first asked for.
  Ref<URLSession> urlSession();
  Ref<Workspace> workspace();
  Ref<RandomSource> randomSource();
  Ref<Executor> makeSerialQueue(const std::string& label);
  Date now();
  void log(std::string_view text);

  // The host's choice. Raises InternalInconsistencyException when there is none.
  Ref<KeychainItems> keychainItems();

  // The one T of this world, made with its default constructor on first use.
  template <class T>
  T& state() {
    const std::size_t slot = slotOf<T>();
    if (void* made = slots_.at(slot).load(std::memory_order_acquire)) return *static_cast<T*>(made);
    void* const made = makeState(
        slot, []() -> void* { return new T(); },
        [](void* object) { delete static_cast<T*>(object); });
    return *static_cast<T*>(made);
  }

 private:
  friend class ScopedWorld;
  static constexpr std::size_t kSlotCount = 16;
  struct Owned {
    void* object;
    void (*destroy)(void*);
  };

  static std::size_t nextSlot();
  template <class T>
  static std::size_t slotOf() {
    static const std::size_t slot = nextSlot();
    return slot;
  }
  // Read without the lock: nothing changes once the world is sealed.
  const Settings& sealedSettings() const QVR_NO_THREAD_ANALYSIS { return settings_; }
  void* makeState(std::size_t slot, void* (*make)(), void (*destroy)(void*));

  RecursiveMutex mutex_;
  std::atomic<bool> sealed_{false};
  Settings settings_ QVR_GUARDED_BY(mutex_);
  std::vector<Owned> owned_ QVR_GUARDED_BY(mutex_);
  std::array<std::atomic<void*>, kSlotCount> slots_{};
};

// Replaces the current World by a new one for a scope. For tests: nothing of the library may still
// run in the new World when the scope ends, and scopes nest.
class ScopedWorld {
 public:
  ScopedWorld();
  ~ScopedWorld();
  ScopedWorld(const ScopedWorld&) = delete;
  ScopedWorld& operator=(const ScopedWorld&) = delete;

 private:
  World* const previous_;
  World* const world_;
};

}  // namespace qvr
