#include "tests/support/LibraryTest.h"

namespace support {

bool FakeWorkspace::openURL(const qvr::URL& url) {
  opened.push_back(url);
  if (onOpen) onOpen(url);
  return opens;
}

std::int32_t FakeRandomSource::copyBytes(std::span<std::uint8_t> bytes) {
  for (std::uint8_t& byte : bytes)
    byte = static_cast<std::uint8_t>(next++ * 37 + 11);
  return status;
}

std::uint32_t FakeRandomSource::uniform(std::uint32_t upperBound) {
  return (next++ * 2654435761u >> 7) % upperBound;
}

LibraryTest::LibraryTest() {
  host.setBundleIdentifier(kBundle);
  host.setGoogleRegistration(kGoogleIdentifier, "", kGoogleScheme);
  host.setMicrosoftApplicationIdentifier(kMicrosoftIdentifier);
  host.setURLSession(session);
  host.setKeychainItems(keychain);
  host.setWorkspace(workspace);
  host.setRandomSource(random);
  host.setClock([clock = clock] { return qvr::Date{clock->now}; });
  host.setLogSink([log = log](std::string_view text) { log->emplace_back(text); });
  host.setSerialQueueFactory([this](const std::string& label) { return queues.make(label); });
}

void LibraryTest::runAll() {
  do {
    queues.runAll();
  } while (callbackQueue->runOne());
}

qvr::Ref<QVROAuth2Token> makeToken(qvr::TextView accessToken, std::optional<double> expiresIn,
                                   qvr::TextView refreshToken, double creationDate) {
  return QVROAuth2Token::initWithAccessToken(accessToken, "Bearer", expiresIn, refreshToken,
                                             qvr::TextSet{"mail"}, qvr::Date{creationDate});
}

}  // namespace support
