// The fixture of tests that use the library: a world of their own with every seam faked.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "QVROAuth2Client/QVROAuth2Client.h"
#include "src/platform/World.h"
#include "tests/support/FakeKeychain.h"
#include "tests/support/FakeSession.h"
#include "tests/support/ManualQueue.h"

namespace support {

// A browser that takes the URLs it is given, or does not.
class FakeWorkspace final : public qvr::Workspace {
 public:
  bool openURL(const qvr::URL& url) override;

  bool opens = true;
  std::function<void(const qvr::URL&)> onOpen;  // runs inside openURL()
  std::vector<qvr::URL> opened;
};

// Counts up from a seed, so that values differ and tests repeat; or fails with a status.
class FakeRandomSource final : public qvr::RandomSource {
 public:
  std::int32_t copyBytes(std::span<std::uint8_t> bytes) override;
  std::uint32_t uniform(std::uint32_t upperBound) override;

  std::int32_t status = 0;
  std::uint32_t next = 0;
};

// A clock of the test's own: it starts at 700,000,000 s and moves when the test moves it.
struct ManualClock {
  double now = 700000000;
};

// Members stand for the registrations and seams that installHost() tells the library.
class LibraryTest : public testing::Test {
 protected:
  static constexpr const char* kBundle = "org.example.mail";
  static constexpr const char* kMicrosoftIdentifier = "01234567-89ab-cdef-0123-456789abcdef";
  static constexpr const char* kGoogleIdentifier = "example-client";
  static constexpr const char* kGoogleScheme = "com.example.mail";

  LibraryTest();

  // Tells the library what `host` holds. A test changes `host` before and calls this first.
  void installHost() { host.install(); }

  // Runs all queues, the session's callback queue too, until nothing is left.
  void runAll();

  qvr::ScopedWorld world;
  QVROAuth2Host host;  // with the fakes below set
  ManualQueues queues;
  qvr::Ref<ManualQueue> callbackQueue = qvr::makeRef<ManualQueue>("callbacks");
  qvr::Ref<FakeSession> session = qvr::makeRef<FakeSession>(callbackQueue);
  qvr::Ref<FakeKeychain> keychain = qvr::makeRef<FakeKeychain>();
  qvr::Ref<FakeWorkspace> workspace = qvr::makeRef<FakeWorkspace>();
  qvr::Ref<FakeRandomSource> random = qvr::makeRef<FakeRandomSource>();
  std::shared_ptr<ManualClock> clock = std::make_shared<ManualClock>();
  std::shared_ptr<std::vector<std::string>> log = std::make_shared<std::vector<std::string>>();
};

// A record as tests use it.
qvr::Ref<QVROAuth2Token> makeToken(qvr::TextView accessToken, std::optional<double> expiresIn,
                                   qvr::TextView refreshToken, double creationDate);

}  // namespace support
