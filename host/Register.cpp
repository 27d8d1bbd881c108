// `register` and `unregister`: three files of the user's tell the desktop who takes the redirects.
// The desktop entry and the bus's service file are the command's own; in the user's list of
// handlers it adds itself, and takes itself out again.
#include <algorithm>
#include <filesystem>
#include <set>
#include <system_error>
#include <utility>
#include <variant>

#include "QVROAuth2Client/platform/Desktop.h"
#include "host/ApplicationIdentifier.h"
#include "host/Command.h"
#include "host/Console.h"
#include "host/DefaultHandler.h"
#include "host/DesktopEntry.h"
#include "host/DesktopFolders.h"
#include "host/FileChanges.h"
#include "host/FileReading.h"
#include "host/HandlerList.h"
#include "host/HelperProgram.h"

namespace host {
namespace {

constexpr double kUpdateSeconds = 10;

using Texts = std::vector<std::string>;

std::string joined(const Texts& texts) {
  std::string sentence;
  for (std::size_t i = 0; i < texts.size(); ++i)
    sentence += (i == 0 ? "" : i + 1 == texts.size() ? " and " : ", ") + texts[i];
  return sentence;
}

class Registration {
 public:
  Registration(const Configuration& configuration, DesktopFolders folders)
      : configuration_(configuration),
        folders_(std::move(folders)),
        identifier_(applicationIdentifier(configuration)),
        entryName_(identifier_ + ".desktop"),
        entry_{folders_.applications + "/" + entryName_, {}},
        service_{folders_.busServices + "/" + identifier_ + ".service", {}},
        list_{handlerListPath(folders_), {}} {}

  int make();
  int undo();

 private:
  struct File {
    std::string path;
    std::optional<std::string> text;  // absent when there is no such file
  };

  std::optional<Failure> read();
  std::optional<Failure> foreignFile() const;
  std::optional<Failure> write(FileChanges& changes) const;
  std::optional<Failure> remove(FileChanges& changes) const;
  std::optional<Failure> removeFromList(FileChanges& changes) const;
  AddedToList addedBefore() const;
  AddedToList addedToList() const;
  std::string listWithUs() const;
  Texts previousHandlers() const;
  std::string handlersAgain() const;
  void warnOfOverrides() const;
  void tellDesktop() const;

  const Configuration& configuration_;
  const DesktopFolders folders_;
  const std::string identifier_;
  const std::string entryName_;
  File entry_;
  File service_;
  File list_;
};

std::optional<Failure> Registration::read() {
  for (File* file : {&entry_, &service_, &list_}) {
    auto text = readSmallFile(file->path);
    if (auto* failure = std::get_if<Failure>(&text)) return *failure;
    file->text = std::get<std::optional<std::string>>(std::move(text));
  }
  return std::nullopt;
}

int Registration::make() {
  if (const auto failure = read()) return report(*failure);
  if (const auto failure = foreignFile()) return report(*failure);
  const Texts previous = previousHandlers();
  FileChanges changes;
  if (const auto failure = write(changes)) return report(*failure);
  changes.keep();
  if (changes.hasChanged()) tellDesktop();
  warnOfOverrides();
  std::string said = changes.hasChanged() ? "Registered: " : "Registered already: ";
  said += "the desktop hands redirects to " + joined(redirectSchemes(configuration_)) +
          " to this command.\n";
  if (changes.hasChanged() && !previous.empty())
    said += "Until now " + joined(previous) + "; so it is again after `qvr-oauth2 unregister`.\n";
  return writeOut(said) ? kDone : report(cannotWriteOutput());
}

std::optional<Failure> Registration::foreignFile() const {
  for (const File* file : {&entry_, &service_}) {
    if (!file->text || markOf(*file->text)) continue;
    return Failure{kFailed, "The file " + file->path +
                                " was not written by this command and would be lost: move it "
                                "away, and register again."};
  }
  return std::nullopt;
}

std::optional<Failure> Registration::write(FileChanges& changes) const {
  std::error_code error;
  const std::string program = std::filesystem::read_symlink("/proc/self/exe", error);
  if (error)
    return Failure{kFailed, "The command's own file is not known (" + error.message() + ")."};
  const std::string& bundle = configuration_.bundleIdentifier;
  const DesktopEntry entry{identifier_,
                           identifier_ == bundle ? "qvr-oauth2" : "qvr-oauth2 for " + bundle,
                           program, redirectSchemes(configuration_), addedToList()};
  if (auto failure = changes.write(entry_.path, desktopEntryText(entry))) return failure;
  if (auto failure = changes.write(service_.path, busServiceText(entry))) return failure;
  return changes.write(list_.path, listWithUs());
}

AddedToList Registration::addedBefore() const {
  return markOf(entry_.text.value_or("")).value_or(AddedToList::kLines);
}

// What is not there now has to be made; what is there may have been made by an earlier run.
AddedToList Registration::addedToList() const {
  if (!list_.text) return AddedToList::kFile;
  const bool hasGroup = HandlerList(*list_.text).hasGroup();
  return hasGroup ? addedBefore() : std::max(addedBefore(), AddedToList::kGroup);
}

// The list with this command first for its schemes, and for none that it had under an earlier
// configuration.
std::string Registration::listWithUs() const {
  HandlerList list(list_.text.value_or(""));
  std::set<std::string> types;
  for (const std::string& scheme : redirectSchemes(configuration_))
    types.insert(typeOfScheme(scheme));
  for (const std::string& type : list.typesOf(entryName_)) {
    if (!types.contains(type)) list.remove(type, entryName_);
  }
  for (const std::string& type : types)
    list.prefer(type, entryName_);
  return list.text();
}

// "mail.desktop had com.example.mail", for each scheme that somebody else handles now.
Texts Registration::previousHandlers() const {
  Texts handlers;
  for (const std::string& scheme : redirectSchemes(configuration_)) {
    const std::string handler = defaultHandler(folders_, scheme);
    if (!handler.empty() && handler != entryName_) handlers.push_back(handler + " had " + scheme);
  }
  return handlers;
}

void Registration::warnOfOverrides() const {
  for (const std::string& scheme : redirectSchemes(configuration_)) {
    const auto other = overridingHandler(folders_, scheme, entryName_);
    if (!other) continue;
    say("warning: " + other->list + " gives " + scheme + " to " + other->entry +
        ", and comes first on this desktop: remove its line for " + typeOfScheme(scheme) + ".");
  }
}

// Neither has to work: the list of handlers names the entry itself, and a bus reads its services
// when it starts.
void Registration::tellDesktop() const {
  runHelperProgram({"update-desktop-database", folders_.applications}, kUpdateSeconds);
  qvr::reloadSessionServices();
}

int Registration::undo() {
  if (const auto failure = read()) return report(*failure);
  FileChanges changes;
  if (const auto failure = remove(changes)) return report(*failure);
  changes.keep();
  std::string said = "Nothing was registered.\n";
  if (changes.hasChanged()) {
    tellDesktop();
    said =
        "Unregistered: the desktop no longer hands redirects to this command.\n" + handlersAgain();
  }
  return writeOut(said) ? kDone : report(cannotWriteOutput());
}

std::optional<Failure> Registration::remove(FileChanges& changes) const {
  if (list_.text) {
    if (auto failure = removeFromList(changes)) return failure;
  }
  for (const File* file : {&entry_, &service_}) {
    if (!file->text || !markOf(*file->text)) continue;
    if (auto failure = changes.remove(file->path)) return failure;
  }
  return std::nullopt;
}

// Also removes the group and the file, if they are empty and the command's own.
std::optional<Failure> Registration::removeFromList(FileChanges& changes) const {
  HandlerList list(*list_.text);
  for (const std::string& type : list.typesOf(entryName_))
    list.remove(type, entryName_);
  if (addedBefore() >= AddedToList::kGroup) list.removeEmptyGroup();
  if (addedBefore() == AddedToList::kFile && list.text().empty()) return changes.remove(list_.path);
  return changes.write(list_.path, list.text());
}

// A line for each scheme that this command had and that somebody has now.
std::string Registration::handlersAgain() const {
  std::string lines;
  for (const std::string& type : HandlerList(list_.text.value_or("")).typesOf(entryName_)) {
    const std::string scheme = type.substr(typeOfScheme("").size());
    const std::string handler = defaultHandler(folders_, scheme);
    if (!handler.empty()) lines += handler + " has " + scheme + " again.\n";
  }
  return lines;
}

std::variant<DesktopFolders, Failure> userFolders() {
  if (auto folders = desktopFolders()) return *std::move(folders);
  return Failure{kFailed, "Your home folder is not known: set HOME."};
}

}  // namespace

int registerSchemes(const Configuration& configuration) {
  if (redirectSchemes(configuration).empty())
    return report({kFailed, "The configuration " + configuration.path +
                                " brings about no redirects, so there is nothing to register: it "
                                "needs custom_uri_scheme under [google] or application_identifier "
                                "under [microsoft]."});
  auto folders = userFolders();
  if (const auto* failure = std::get_if<Failure>(&folders)) return report(*failure);
  return Registration(configuration, std::get<DesktopFolders>(std::move(folders))).make();
}

int unregisterSchemes(const Configuration& configuration) {
  auto folders = userFolders();
  if (const auto* failure = std::get_if<Failure>(&folders)) return report(*failure);
  return Registration(configuration, std::get<DesktopFolders>(std::move(folders))).undo();
}

}  // namespace host
