#include "src/ports/SecretServiceErrors.h"

#include <algorithm>
#include <string_view>

#include "QVROAuth2Client/platform/KeychainItems.h"

namespace qvr {

namespace {

using Called = SecretServiceObject;

SecretServiceFailure noService() {
  return {errSecNotAvailable, "No Secret Service answers on the D-Bus session."};
}

SecretServiceFailure noAnswerInTime() {
  return {errSecNotAvailable, "The Secret Service does not answer."};
}

SecretServiceFailure noSuchItem() {
  return {errSecItemNotFound, "The keyring has no such item."};
}

SecretServiceFailure noPermission() {
  return {errSecWrPerm, "The Secret Service refuses this program."};
}

SecretServiceFailure otherError() {
  return {errSecIO, "The Secret Service reported an error."};
}

// What an error means on an object. The first row that fits counts.
struct Meaning {
  std::string_view error;  // a name; with a dot at its end, the beginning of names; empty for any
  Called called;
  SecretServiceFailure (*failure)();
};

constexpr Meaning kMeanings[] = {
    {"org.freedesktop.DBus.Error.ServiceUnknown", Called::kWellKnownName, noService},
    {"org.freedesktop.DBus.Error.NameHasNoOwner", Called::kWellKnownName, noService},
    {"org.freedesktop.DBus.Error.TimedOut", Called::kWellKnownName, noService},
    {"org.freedesktop.DBus.Error.Spawn.", Called::kWellKnownName, noService},
    {"org.freedesktop.DBus.Error.NoReply", Called::kWellKnownName, secretServiceDied},
    {"", Called::kWellKnownName, noService},
    {"org.freedesktop.DBus.Error.UnknownMethod", Called::kDefaultKeyring, noDefaultKeyring},
    {"org.freedesktop.DBus.Error.UnknownObject", Called::kDefaultKeyring, noDefaultKeyring},
    {"org.freedesktop.Secret.Error.NoSuchObject", Called::kDefaultKeyring, noDefaultKeyring},
    {"org.freedesktop.DBus.Error.UnknownMethod", Called::kItem, noSuchItem},
    {"org.freedesktop.DBus.Error.UnknownObject", Called::kItem, noSuchItem},
    {"org.freedesktop.Secret.Error.NoSuchObject", Called::kItem, noSuchItem},
};

// The same on every object. These are asked by their unique name, which goes with its owner.
struct CommonMeaning {
  std::string_view error;
  SecretServiceFailure (*failure)();
};

constexpr CommonMeaning kCommonMeanings[] = {
    {"org.freedesktop.DBus.Error.NoReply", secretServiceDied},
    {"org.freedesktop.DBus.Error.ServiceUnknown", secretServiceDied},
    {"org.freedesktop.DBus.Error.NameHasNoOwner", secretServiceDied},
    {"org.freedesktop.Secret.Error.NoSession", secretServiceDied},
    {"org.freedesktop.Secret.Error.IsLocked", keyringIsLocked},
    {"org.freedesktop.DBus.Error.AccessDenied", noPermission},
};

bool fits(std::string_view row, const std::string& error) {
  return row.empty() || row == error || (row.ends_with('.') && error.starts_with(row));
}

SecretServiceFailure meaningOf(const std::string& error, Called called) {
  for (const Meaning& meaning : kMeanings) {
    if (meaning.called == called && fits(meaning.error, error)) return meaning.failure();
  }
  for (const CommonMeaning& meaning : kCommonMeanings) {
    if (meaning.error == error) return meaning.failure();
  }
  return otherError();
}

}  // namespace

SecretServiceFailure secretServiceDied() {
  return {errSecNotAvailable, "The Secret Service ended while it was in use.", true};
}

SecretServiceFailure keyringIsLocked() {
  return {errSecInteractionNotAllowed, "The default keyring is locked."};
}

SecretServiceFailure noDefaultKeyring() {
  return {errSecNotAvailable, "The Secret Service has no default keyring."};
}

SecretServiceFailure malformedAnswer() {
  return {errSecIO, "The Secret Service answers in a form of its own."};
}

void requireAnswer(const BusReply& reply, SecretServiceObject called) {
  switch (reply.kind) {
    case BusReply::Kind::kAnswer:
      return;
    case BusReply::Kind::kError:
      throw meaningOf(reply.errorName, called);
    case BusReply::Kind::kTimedOut:
      throw noAnswerInTime();
    case BusReply::Kind::kLost:
      throw secretServiceDied();
  }
}

}  // namespace qvr
