// What the host application tells the library, once, at start.
//
//   QVROAuth2Host host;
//   host.setBundleIdentifier("org.example.mail");
//   host.setMicrosoftApplicationIdentifier("00000000-0000-0000-0000-000000000000");
//   host.setKeychainItems(qvr::makeEncryptedFileKeychain({...}));
//   host.install();
//
// Thread rule: set and install on one thread, before anything else of the library is used. After
// that nothing here can change.
#pragma once

#include <memory>

#include "QVROAuth2Client/platform/Date.h"
#include "QVROAuth2Client/platform/Executor.h"
#include "QVROAuth2Client/platform/Export.h"
#include "QVROAuth2Client/platform/KeychainItems.h"
#include "QVROAuth2Client/platform/Object.h"
#include "QVROAuth2Client/platform/Ports.h"
#include "QVROAuth2Client/platform/RandomSource.h"
#include "QVROAuth2Client/platform/Text.h"
#include "QVROAuth2Client/platform/URLSession.h"
#include "QVROAuth2Client/platform/Workspace.h"

class QVR_EXPORT QVROAuth2Host {
 public:
  QVROAuth2Host();
  ~QVROAuth2Host();
  QVROAuth2Host(QVROAuth2Host&&) noexcept;
  QVROAuth2Host& operator=(QVROAuth2Host&&) noexcept;

  // The application's identifier in reverse domain form. It begins the keychain service names and
  // the queue labels, and ends the Microsoft URI scheme ("msauth." and the identifier), which the
  // host must declare to the desktop. Absent by default.
  void setBundleIdentifier(qvr::TextView bundleIdentifier);

  // The registration at Google; all three empty by default, and then no redirect is recognised as
  // Google's. An absent secret is kept as the empty one. The redirect URI is the scheme followed by
  // ":/oauth2/auth".
  void setGoogleRegistration(qvr::TextView clientIdentifier, qvr::TextView clientSecret,
                             qvr::TextView customURIScheme);

  // The application (client) identifier of the registration at Microsoft: a GUID in its
  // 36-character form. Empty by default.
  void setMicrosoftApplicationIdentifier(qvr::TextView applicationIdentifier);

  // The hosts of the endpoints, each optionally with ":port", for national clouds and test servers.
  // Defaults: accounts.google.com, oauth2.googleapis.com, login.microsoftonline.com.
  void setGoogleAuthorizationHost(qvr::TextView host);
  void setGoogleTokenHost(qvr::TextView host);
  void setMicrosoftLoginHost(qvr::TextView host);

  // A translation of one of the library's texts, which are exactly these: "Missing required
  // response parameter: %@", "Missing required response parameters: %@" and the separator ", ".
  // Other texts are ignored.
  void setLocalizedString(qvr::TextView text, qvr::TextView translation);

  // The platform's seams. An unset one is made from the library's own ports on first use, except
  // the keychain, which has no default: where tokens are kept is the host's choice.
  void setURLSession(qvr::Ref<qvr::URLSession> session);
  void setKeychainItems(qvr::Ref<qvr::KeychainItems> items);
  void setWorkspace(qvr::Ref<qvr::Workspace> workspace);
  void setLogSink(qvr::LogSink sink);
  void setRandomSource(qvr::Ref<qvr::RandomSource> source);
  void setClock(qvr::Clock clock);
  // The factory is called while the library makes what it has one of: it must not wait for a thread
  // that uses the library.
  void setSerialQueueFactory(qvr::SerialQueueFactory factory);

  // Hands the settings to the library; this object is empty afterwards. Raises
  // InternalInconsistencyException when the library has been used, or installed, before.
  void install();

  struct QVR_HIDDEN Settings;  // internal

 private:
  std::unique_ptr<Settings> settings_;
};
