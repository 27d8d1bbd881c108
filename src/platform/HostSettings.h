// What QVROAuth2Host collects, with the defaults of a host that says nothing.
#pragma once

#include <map>
#include <string>

#include "QVROAuth2Client/QVROAuth2Host.h"

struct QVROAuth2Host::Settings {
  qvr::Text bundleIdentifier;
  std::string googleClientIdentifier;
  std::string googleClientSecret;
  std::string googleCustomURIScheme;
  std::string microsoftApplicationIdentifier;
  std::string googleAuthorizationHost = "accounts.google.com";
  std::string googleTokenHost = "oauth2.googleapis.com";
  std::string microsoftLoginHost = "login.microsoftonline.com";
  std::map<std::string, std::string, std::less<>> localizedStrings;

  qvr::Ref<qvr::URLSession> urlSession;
  qvr::Ref<qvr::KeychainItems> keychainItems;
  qvr::Ref<qvr::Workspace> workspace;
  qvr::LogSink logSink;
  qvr::Ref<qvr::RandomSource> randomSource;
  qvr::Clock clock;
  qvr::SerialQueueFactory serialQueueFactory;
};
