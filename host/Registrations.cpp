#include "host/Registrations.h"

#include <algorithm>
#include <filesystem>
#include <set>
#include <string_view>
#include <system_error>
#include <utility>

#include "QVROAuth2Client/platform/Desktop.h"
#include "host/ApplicationIdentifier.h"
#include "host/Deadline.h"
#include "host/FileReading.h"
#include "host/HelperProgram.h"

namespace host {
namespace {

constexpr double kUpdateSeconds = 10;
constexpr double kReloadSeconds = 5;
constexpr std::string_view kEntryEnding = ".desktop";
constexpr std::string_view kServiceEnding = ".service";

std::optional<Failure> read(RegisteredFile* file) {
  auto text = readSmallFile(file->path);
  if (auto* failure = std::get_if<Failure>(&text)) return *failure;
  file->text = std::get<std::optional<std::string>>(std::move(text));
  return std::nullopt;
}

// Adds the identifiers after which files of the folder are named. A missing folder has none.
std::optional<Failure> addIdentifiers(const std::string& folder, std::string_view ending,
                                      std::set<std::string>* identifiers) {
  std::error_code error;
  for (std::filesystem::directory_iterator file(folder, error), end; !error && file != end;
       file.increment(error)) {
    std::string name = file->path().filename();
    if (!name.ends_with(ending)) continue;
    name.resize(name.size() - ending.size());
    if (isApplicationIdentifier(name)) identifiers->insert(std::move(name));
  }
  if (!error || error == std::errc::no_such_file_or_directory) return std::nullopt;
  return Failure{kFailed, "The folder " + folder + " cannot be read (" + error.message() + ")."};
}

}  // namespace

AddedToList Registration::added() const {
  return std::max(markOf(entry.text.value_or("")).value_or(AddedToList::kLines),
                  markOf(service.text.value_or("")).value_or(AddedToList::kLines));
}

std::variant<Registration, Failure> readRegistration(const DesktopFolders& folders,
                                                     const std::string& identifier) {
  Registration registration;
  registration.entryName = identifier + std::string(kEntryEnding);
  registration.entry.path = folders.applications + "/" + registration.entryName;
  registration.service.path = folders.busServices + "/" + identifier + std::string(kServiceEnding);
  for (RegisteredFile* file : {&registration.entry, &registration.service}) {
    if (auto failure = read(file)) return *failure;
  }
  return registration;
}

std::variant<std::vector<Registration>, Failure> readRegistrations(const DesktopFolders& folders) {
  std::set<std::string> identifiers;
  if (auto failure = addIdentifiers(folders.applications, kEntryEnding, &identifiers))
    return *failure;
  if (auto failure = addIdentifiers(folders.busServices, kServiceEnding, &identifiers))
    return *failure;
  std::vector<Registration> registrations;
  for (const std::string& identifier : identifiers) {
    auto read = readRegistration(folders, identifier);
    if (auto* failure = std::get_if<Failure>(&read)) return *failure;
    auto& registration = std::get<Registration>(read);
    if (registration.entry.isOurs() || registration.service.isOurs())
      registrations.push_back(std::move(registration));
  }
  return registrations;
}

std::vector<Registration> knownRegistrations(const DesktopFolders& folders) {
  auto read = readRegistrations(folders);
  auto* const registrations = std::get_if<std::vector<Registration>>(&read);
  return registrations != nullptr ? std::move(*registrations) : std::vector<Registration>();
}

AddedToList mostAdded(const std::vector<Registration>& registrations) {
  AddedToList most = AddedToList::kLines;
  for (const Registration& registration : registrations)
    most = std::max(most, registration.added());
  return most;
}

std::variant<DesktopFolders, Failure> foldersOfRegistrations() {
  if (auto folders = desktopFolders()) return *std::move(folders);
  return Failure{kFailed, "Your home folder is not known: set HOME."};
}

// Neither has to work: the list of handlers names the entry itself, and a bus reads its services
// when it starts.
void tellDesktop(const DesktopFolders& folders) {
  runHelperProgram({"update-desktop-database", folders.applications}, kUpdateSeconds);
  qvr::reloadSessionServices({}, secondsLeft(kReloadSeconds));
}

std::string joined(const std::vector<std::string>& texts) {
  std::string sentence;
  for (std::size_t i = 0; i < texts.size(); ++i)
    sentence += (i == 0 ? "" : i + 1 == texts.size() ? " and " : ", ") + texts[i];
  return sentence;
}

}  // namespace host
