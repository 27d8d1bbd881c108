#include "src/platform/World.h"

#include "QVROAuth2Client/platform/Exception.h"
#include "QVROAuth2Client/platform/Ports.h"

namespace qvr {

namespace {

std::atomic<World*> theCurrent{nullptr};
std::atomic<std::size_t> slotsInUse{0};

World& processWorld() {
  static World* const world = new World;  // reachable for ever, destroyed never
  return *world;
}

}  // namespace

World::World() = default;

World::~World() {
  for (auto owned = owned_.rbegin(); owned != owned_.rend(); ++owned) {
    owned->destroy(owned->object);
  }
}

World& World::current() {
  World* const world = theCurrent.load(std::memory_order_acquire);
  return world != nullptr ? *world : processWorld();
}

void World::install(Settings&& settings) {
  RecursiveMutexLock lock(mutex_);
  if (sealed_.load(std::memory_order_relaxed)) {
    throw InternalInconsistencyException(
        "*** -[QVROAuth2Host install]: the library is in use already; install once, before first "
        "use");
  }
  settings_ = std::move(settings);
  sealed_.store(true, std::memory_order_release);
}

const World::Settings& World::settings() {
  if (!sealed_.load(std::memory_order_acquire)) {
    RecursiveMutexLock lock(mutex_);
    sealed_.store(true, std::memory_order_release);
  }
  return sealedSettings();
}

std::string_view World::localizedString(std::string_view text) {
  const Settings& known = settings();
  const auto found = known.localizedStrings.find(text);
  return found != known.localizedStrings.end() ? std::string_view(found->second) : text;
}

namespace {

// The default ports, one slot of state each, so that asking for one makes no other.
struct DefaultURLSession {
  Ref<URLSession> port = makeURLSession();
};
struct DefaultWorkspace {
  Ref<Workspace> port = makeWorkspace();
};
struct DefaultRandomSource {
  Ref<RandomSource> port = makeRandomSource();
};
struct DefaultLog {
  LogSink port = makeStandardErrorLog();
};
struct DefaultClock {
  Clock port = makeSystemClock();
};

}  // namespace

Ref<URLSession> World::urlSession() {
  const Settings& chosen = settings();
  return chosen.urlSession ? chosen.urlSession : state<DefaultURLSession>().port;
}

Ref<Workspace> World::workspace() {
  const Settings& chosen = settings();
  return chosen.workspace ? chosen.workspace : state<DefaultWorkspace>().port;
}

Ref<RandomSource> World::randomSource() {
  const Settings& chosen = settings();
  return chosen.randomSource ? chosen.randomSource : state<DefaultRandomSource>().port;
}

Ref<Executor> World::makeSerialQueue(const std::string& label) {
  const Settings& chosen = settings();
  return chosen.serialQueueFactory ? chosen.serialQueueFactory(label) : qvr::makeSerialQueue(label);
}

Date World::now() {
  const Settings& chosen = settings();
  return chosen.clock ? chosen.clock() : state<DefaultClock>().port();
}

void World::log(std::string_view text) {
  const Settings& chosen = settings();
  chosen.logSink ? chosen.logSink(text) : state<DefaultLog>().port(text);
}

Ref<KeychainItems> World::keychainItems() {
  const Settings& chosen = settings();
  if (!chosen.keychainItems) {
    throw InternalInconsistencyException(
        "*** QVROAuth2Host: no keychain; call setKeychainItems() before install()");
  }
  return chosen.keychainItems;
}

std::size_t World::nextSlot() {
  return slotsInUse.fetch_add(1, std::memory_order_relaxed);
}

void* World::makeState(std::size_t slot, void* (*make)(), void (*destroy)(void*)) {
  RecursiveMutexLock lock(mutex_);
  if (void* made = slots_.at(slot).load(std::memory_order_relaxed)) return made;
  void* const made = make();
  owned_.push_back({made, destroy});
  slots_.at(slot).store(made, std::memory_order_release);
  return made;
}

ScopedWorld::ScopedWorld()
    : previous_(theCurrent.load(std::memory_order_acquire)), world_(new World) {
  theCurrent.store(world_, std::memory_order_release);
}

ScopedWorld::~ScopedWorld() {
  theCurrent.store(previous_, std::memory_order_release);
  delete world_;
}

}  // namespace qvr
