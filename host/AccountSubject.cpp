#include "host/AccountSubject.h"

#include <unistd.h>

#include <cerrno>
#include <optional>
#include <variant>

#include "host/Console.h"
#include "host/FileReading.h"
#include "host/FileWriting.h"
#include "host/HashedName.h"
#include "host/Paths.h"
#include "host/Steps.h"

namespace host {
namespace {

// Where the account's note lies; absent without a home folder. Only the user's name,
// which is the last, could hold a line's end.
std::optional<std::string> notePath(const std::string& bundleIdentifier, const Account& account) {
  const auto data = dataFolder();
  if (!data) return std::nullopt;
  const std::string key = bundleIdentifier + "\n" + account.provider + "\n" + account.username;
  return *data + "/subjects/" + hashedName(key);
}

std::string noteOf(const std::string& subject) {
  return hashedName(subject) + "\n";
}

}  // namespace

void noteSubject(const std::string& bundleIdentifier, const Account& account,
                 const std::string& subject) {
  const auto path = notePath(bundleIdentifier, account);
  if (!path) return step("whose token it is cannot be noted: there is no home folder");
  const auto failure = replaceFile(*path, noteOf(subject));
  if (!failure) return;
  step("whose token it is cannot be noted: " + failure->sentence);
  if (isAnotherSubject(bundleIdentifier, account, subject)) {
    say("Warning: the note " + *path +
        " of whose token this is cannot be replaced, and the next "
        "refresh will be refused: remove it.");
  }
}

// A note of another length was damaged, and proves nothing.
bool isAnotherSubject(const std::string& bundleIdentifier, const Account& account,
                      const std::string& subject) {
  const auto path = notePath(bundleIdentifier, account);
  if (!path) return false;
  const auto text = readSmallFile(*path);
  const auto* const note = std::get_if<std::optional<std::string>>(&text);
  if (note == nullptr)
    step("whose token it was cannot be read: " + std::get<Failure>(text).sentence);
  if (note == nullptr || !*note) return false;
  const std::string expected = noteOf(subject);
  return (*note)->size() == expected.size() && **note != expected;
}

void forgetSubject(const std::string& bundleIdentifier, const Account& account) {
  const auto path = notePath(bundleIdentifier, account);
  if (path && unlink(path->c_str()) != 0 && errno != ENOENT)
    step("the note " + *path + " of whose token it was cannot be removed");
}

}  // namespace host
