// `register`: three files of the user's tell the desktop who takes the redirects. The desktop entry
// and the bus's service file are the command's own; to the user's list of handlers it adds itself.
#include <algorithm>
#include <filesystem>
#include <set>
#include <system_error>
#include <utility>
#include <variant>

#include "host/ApplicationIdentifier.h"
#include "host/Command.h"
#include "host/Console.h"
#include "host/DefaultHandler.h"
#include "host/FileChanges.h"
#include "host/FileReading.h"
#include "host/HandlerList.h"
#include "host/Registrations.h"
#include "host/Steps.h"

namespace host {
namespace {

class Registering {
 public:
  Registering(const Configuration& configuration, DesktopFolders folders)
      : configuration_(configuration),
        folders_(std::move(folders)),
        identifier_(applicationIdentifier(configuration)),
        listPath_(handlerListPath(folders_)) {}

  int run();

 private:
  std::optional<Failure> read();
  std::optional<Failure> foreignFile() const;
  std::optional<Failure> write(FileChanges& changes) const;
  AddedToList addedToList() const;
  std::string listWithUs() const;
  bool isAnotherRegistration(const std::string& handler) const;
  std::vector<std::string> previousHandlers() const;
  void warnOfOverrides() const;

  const Configuration& configuration_;
  const DesktopFolders folders_;
  const std::string identifier_;
  const std::string listPath_;
  std::optional<std::string> list_;  // its text; absent when there is no such file
  Registration before_;
  std::vector<Registration> all_;  // with this one, if it is there
};

std::optional<Failure> Registering::read() {
  auto list = readSmallFile(listPath_);
  if (auto* failure = std::get_if<Failure>(&list)) return *failure;
  list_ = std::get<std::optional<std::string>>(std::move(list));
  auto before = readRegistration(folders_, identifier_);
  if (auto* failure = std::get_if<Failure>(&before)) return *failure;
  before_ = std::get<Registration>(std::move(before));
  all_ = knownRegistrations(folders_);
  return std::nullopt;
}

int Registering::run() {
  if (const auto failure = read()) return report(*failure);
  if (const auto failure = foreignFile()) return report(*failure);
  step("registering " + identifier_ + " for " + joined(redirectSchemes(configuration_)) + ": " +
       before_.entry.path + ", " + before_.service.path + ", " + listPath_);
  const std::vector<std::string> previous = previousHandlers();
  FileChanges changes;
  if (const auto failure = write(changes)) return report(*failure);
  changes.keep();
  step(changes.hasChanged() ? "the files are written" : "everything was there");
  if (changes.hasChanged()) tellDesktop(folders_);
  warnOfOverrides();
  std::string said = changes.hasChanged() ? "Registered: " : "Registered already: ";
  said += "the desktop hands redirects to " + joined(redirectSchemes(configuration_)) +
          " to this command.\n";
  if (changes.hasChanged() && !previous.empty())
    said += "Until now " + joined(previous) + "; so it is again after `qvr-oauth2 unregister`.\n";
  return writeOut(said) ? kDone : report(cannotWriteOutput());
}

std::optional<Failure> Registering::foreignFile() const {
  for (const RegisteredFile* file : {&before_.entry, &before_.service}) {
    if (!file->text || file->isOurs()) continue;
    return Failure{kFailed, "The file " + file->path +
                                " was not written by this command and would be lost: move it "
                                "away, and register again."};
  }
  return std::nullopt;
}

std::optional<Failure> Registering::write(FileChanges& changes) const {
  std::error_code error;
  const std::string program = std::filesystem::read_symlink("/proc/self/exe", error);
  if (error)
    return Failure{kFailed, "The command's own file is not known (" + error.message() + ")."};
  const std::string& bundle = configuration_.bundleIdentifier;
  const DesktopEntry entry{identifier_,
                           identifier_ == bundle ? "qvr-oauth2" : "qvr-oauth2 for " + bundle,
                           program, redirectSchemes(configuration_), addedToList()};
  if (auto failure = changes.write(before_.entry.path, desktopEntryText(entry))) return failure;
  if (auto failure = changes.write(before_.service.path, busServiceText(entry))) return failure;
  if (auto failure = changes.requireText(listPath_, list_)) return failure;
  return changes.write(listPath_, listWithUs());
}

// What is not there now has to be made; what is there may have been made by an earlier run, for
// this configuration or another. The last to be taken away takes it along.
AddedToList Registering::addedToList() const {
  if (!list_) return AddedToList::kFile;
  const AddedToList before = mostAdded(all_);
  return HandlerList(*list_).hasGroup() ? before : std::max(before, AddedToList::kGroup);
}

// The list with this command first for its schemes, and for none that it had under an earlier
// configuration.
std::string Registering::listWithUs() const {
  HandlerList list(list_.value_or(""));
  std::set<std::string> types;
  for (const std::string& scheme : redirectSchemes(configuration_))
    types.insert(typeOfScheme(scheme));
  for (const std::string& type : list.typesOf(before_.entryName)) {
    if (!types.contains(type)) list.remove(type, before_.entryName);
  }
  for (const std::string& type : types)
    list.prefer(type, before_.entryName);
  return list.text();
}

bool Registering::isAnotherRegistration(const std::string& handler) const {
  return std::any_of(all_.begin(), all_.end(), [&](const Registration& each) {
    return each.entryName == handler && each.entry.isOurs();
  });
}

// "mail.desktop had com.example.mail", for each scheme that somebody else handles now.
std::vector<std::string> Registering::previousHandlers() const {
  std::vector<std::string> handlers;
  for (const std::string& scheme : redirectSchemes(configuration_)) {
    std::string handler = defaultHandler(folders_, scheme);
    if (handler.empty() || handler == before_.entryName) continue;
    if (isAnotherRegistration(handler)) handler = "an earlier registration of this command";
    handlers.push_back(printable(handler) + " had " + scheme);
  }
  return handlers;
}

void Registering::warnOfOverrides() const {
  for (const std::string& scheme : redirectSchemes(configuration_)) {
    const auto other = overridingHandler(folders_, scheme, before_.entryName);
    if (!other) continue;
    say("warning: " + other->list + " gives " + scheme + " to " + other->entry +
        ", and comes first on this desktop: remove its line for " + typeOfScheme(scheme) + ".");
  }
}

}  // namespace

int registerSchemes(const Configuration& configuration) {
  if (redirectSchemes(configuration).empty())
    return report({kFailed, "The configuration " + configuration.path +
                                " brings about no redirects, so there is nothing to register: it "
                                "needs custom_uri_scheme under [google] or application_identifier "
                                "under [microsoft]."});
  auto folders = foldersOfRegistrations();
  if (const auto* failure = std::get_if<Failure>(&folders)) return report(*failure);
  return Registering(configuration, std::get<DesktopFolders>(std::move(folders))).run();
}

}  // namespace host
