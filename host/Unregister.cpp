// `unregister`: takes away what `register` wrote, and this command out of the user's list of
// handlers.
#include <set>
#include <utility>
#include <variant>

#include "host/ApplicationIdentifier.h"
#include "host/Command.h"
#include "host/Console.h"
#include "host/DefaultHandler.h"
#include "host/EmptyFolders.h"
#include "host/FileChanges.h"
#include "host/FileReading.h"
#include "host/HandlerList.h"
#include "host/Registrations.h"
#include "host/Steps.h"

namespace host {
namespace {

class Unregistering {
 public:
  Unregistering(DesktopFolders folders, std::vector<Registration> registrations)
      : folders_(std::move(folders)),
        registrations_(std::move(registrations)),
        listPath_(handlerListPath(folders_)) {}

  int run();

 private:
  std::optional<Failure> readList();
  std::optional<Failure> remove(FileChanges& changes) const;
  std::optional<Failure> removeFromList(FileChanges& changes) const;
  std::set<std::string> types() const;
  std::string handlersAgain() const;
  std::string othersThere() const;

  const DesktopFolders folders_;
  const std::vector<Registration> registrations_;  // those to remove
  const std::string listPath_;
  std::optional<std::string> list_;  // its text; absent when there is no such file
};

int Unregistering::run() {
  if (const auto failure = readList()) return report(*failure);
  for (const Registration& registration : registrations_)
    step("removing " + registration.entry.path + ", " + registration.service.path +
         " and its lines in " + listPath_);
  FileChanges changes;
  if (const auto failure = remove(changes)) return report(*failure);
  changes.keep();
  std::string said = "Nothing was registered.\n";
  if (changes.hasChanged()) {
    tellDesktop(folders_);
    removeEmptyFolders(folders_);
    said =
        "Unregistered: the desktop no longer hands redirects to this command.\n" + handlersAgain();
  }
  return writeOut(said + othersThere()) ? kDone : report(cannotWriteOutput());
}

std::optional<Failure> Unregistering::readList() {
  auto text = readSmallFile(listPath_);
  if (auto* failure = std::get_if<Failure>(&text)) return *failure;
  list_ = std::get<std::optional<std::string>>(std::move(text));
  return std::nullopt;
}

std::optional<Failure> Unregistering::remove(FileChanges& changes) const {
  if (list_) {
    if (auto failure = removeFromList(changes)) return failure;
  }
  for (const Registration& registration : registrations_) {
    for (const RegisteredFile* file : {&registration.entry, &registration.service}) {
      if (!file->isOurs()) continue;
      if (auto failure = changes.remove(file->path)) return failure;
    }
  }
  return std::nullopt;
}

// Also removes the group and the file, if they are empty and the command's own.
std::optional<Failure> Unregistering::removeFromList(FileChanges& changes) const {
  HandlerList list(*list_);
  for (const Registration& registration : registrations_) {
    for (const std::string& type : list.typesOf(registration.entryName))
      list.remove(type, registration.entryName);
  }
  if (auto failure = changes.requireText(listPath_, list_)) return failure;
  const AddedToList added = mostAdded(registrations_);
  if (added >= AddedToList::kGroup) list.removeEmptyGroup();
  if (added == AddedToList::kFile && list.text().empty()) return changes.remove(listPath_);
  return changes.write(listPath_, list.text());
}

std::set<std::string> Unregistering::types() const {
  const HandlerList list(list_.value_or(""));
  std::set<std::string> types;
  for (const Registration& registration : registrations_) {
    for (std::string& type : list.typesOf(registration.entryName))
      types.insert(std::move(type));
  }
  return types;
}

// A line for each scheme that this command had and that somebody has now.
std::string Unregistering::handlersAgain() const {
  std::string lines;
  for (const std::string& type : types()) {
    const std::string scheme = type.substr(typeOfScheme("").size());
    const std::string handler = defaultHandler(folders_, scheme);
    if (!handler.empty()) lines += printable(handler) + " has " + scheme + " again.\n";
  }
  return lines;
}

// A registration outlives the bundle identifier under which it was made.
std::string Unregistering::othersThere() const {
  std::vector<std::string> others;
  for (const Registration& registration : knownRegistrations(folders_))
    others.push_back(registration.entryName);
  if (others.empty()) return "";
  return "This command is still registered, for another bundle identifier, as " + joined(others) +
         ": `qvr-oauth2 unregister --all` undoes that too.\n";
}

}  // namespace

int unregisterSchemes(const Configuration& configuration) {
  auto folders = foldersOfRegistrations();
  if (const auto* failure = std::get_if<Failure>(&folders)) return report(*failure);
  auto& known = std::get<DesktopFolders>(folders);
  auto registration = readRegistration(known, applicationIdentifier(configuration));
  if (const auto* failure = std::get_if<Failure>(&registration)) return report(*failure);
  return Unregistering(std::move(known), {std::get<Registration>(std::move(registration))}).run();
}

int unregisterAll() {
  auto folders = foldersOfRegistrations();
  if (const auto* failure = std::get_if<Failure>(&folders)) return report(*failure);
  auto& known = std::get<DesktopFolders>(folders);
  auto all = readRegistrations(known);
  if (const auto* failure = std::get_if<Failure>(&all)) return report(*failure);
  return Unregistering(std::move(known), std::get<std::vector<Registration>>(std::move(all))).run();
}

}  // namespace host
