#include "host/HandlerList.h"

#include <algorithm>
#include <utility>

namespace host {
namespace {

constexpr std::string_view kGroup = "[Default Applications]";
constexpr std::string_view kWhiteSpace = " \t\r";

std::string_view trimmed(std::string_view text) {
  const std::size_t start = text.find_first_not_of(kWhiteSpace);
  if (start == std::string_view::npos) return {};
  return text.substr(start, text.find_last_not_of(kWhiteSpace) - start + 1);
}

bool isHeader(std::string_view line) {
  return trimmed(line).starts_with('[');
}

bool isGroup(std::string_view line) {
  return trimmed(line) == kGroup;
}

// The entries of a value, which ";" ends or separates.
std::vector<std::string_view> entriesOf(std::string_view value) {
  std::vector<std::string_view> entries;
  for (std::size_t start = 0; start < value.size();) {
    const std::size_t end = std::min(value.find(';', start), value.size());
    const std::string_view entry = trimmed(value.substr(start, end - start));
    if (!entry.empty()) entries.push_back(entry);
    start = end + 1;
  }
  return entries;
}

// Takes the entry, and the ";" behind it, out of the value that begins at `start`. False when it is
// not there.
bool removeEntry(std::string& line, std::size_t start, std::string_view entry) {
  bool found = false;
  while (start < line.size()) {
    const std::size_t end = std::min(line.find(';', start), line.size());
    if (trimmed(std::string_view(line).substr(start, end - start)) == entry) {
      line.erase(start, end + 1 - start);
      found = true;
    } else {
      start = end + 1;
    }
  }
  return found;
}

}  // namespace

HandlerList::HandlerList(std::string_view text) {
  for (std::size_t end = 0; (end = text.find('\n')) != std::string_view::npos;
       text.remove_prefix(end + 1))
    lines_.emplace_back(text.substr(0, end));
  lines_.emplace_back(text);
}

std::string HandlerList::text() const {
  if (lines_.empty()) return {};
  std::string text = lines_.front();
  for (std::size_t i = 1; i < lines_.size(); ++i)
    text += "\n" + lines_[i];
  return text;
}

std::vector<HandlerList::Default> HandlerList::defaults() const {
  std::vector<Default> found;
  bool isInGroup = false;
  for (std::size_t i = 0; i < lines_.size(); ++i) {
    const std::string_view line = lines_[i];
    if (isHeader(line)) isInGroup = isGroup(line);
    const std::size_t equals = line.find('=');
    if (!isInGroup || equals == std::string_view::npos || trimmed(line).starts_with('#')) continue;
    const std::size_t value = std::min(line.find_first_not_of(" \t", equals + 1), line.size());
    found.push_back({i, trimmed(line.substr(0, equals)), value});
  }
  return found;
}

std::vector<std::string> HandlerList::handlers(std::string_view type) const {
  std::vector<std::string> handlers;
  for (const Default& each : defaults()) {
    if (each.type != type) continue;
    for (const std::string_view entry :
         entriesOf(std::string_view(lines_[each.line]).substr(each.valueStart)))
      handlers.emplace_back(entry);
  }
  return handlers;
}

std::vector<std::string> HandlerList::typesOf(std::string_view entry) const {
  std::vector<std::string> types;
  for (const Default& each : defaults()) {
    const auto entries = entriesOf(std::string_view(lines_[each.line]).substr(each.valueStart));
    if (std::find(entries.begin(), entries.end(), entry) != entries.end())
      types.emplace_back(each.type);
  }
  return types;
}

void HandlerList::prefer(std::string_view type, std::string_view entry) {
  bool isThere = false;
  for (const Default& each : defaults()) {
    if (each.type != type) continue;
    isThere = true;
    std::string& line = lines_[each.line];
    const auto entries = entriesOf(std::string_view(line).substr(each.valueStart));
    if (!entries.empty() && entries.front() == entry) continue;
    removeEntry(line, each.valueStart, entry);
    line.insert(each.valueStart, std::string(entry) + ";");
  }
  if (isThere) return;
  const auto place = static_cast<std::ptrdiff_t>(placeForDefault());
  lines_.insert(lines_.begin() + place, std::string(type) + "=" + std::string(entry) + ";");
}

// Behind the last line of the group that is not blank; the group is made when there is none.
std::size_t HandlerList::placeForDefault() {
  auto place = std::find_if(lines_.begin(), lines_.end(), isGroup);
  if (place == lines_.end())
    place =
        lines_.insert(lines_.back().empty() ? lines_.end() - 1 : lines_.end(), std::string(kGroup));
  const auto end = std::find_if(place + 1, lines_.end(), isHeader);
  for (auto line = place; line != end; ++line) {
    if (!trimmed(*line).empty()) place = line;
  }
  return static_cast<std::size_t>(place + 1 - lines_.begin());
}

void HandlerList::remove(std::string_view type, std::string_view entry) {
  const std::vector<Default> found = defaults();
  for (auto each = found.rbegin(); each != found.rend(); ++each) {  // erasing moves later lines
    if (each->type != type) continue;
    std::string& line = lines_[each->line];
    const bool wasThere = removeEntry(line, each->valueStart, entry);
    if (wasThere && entriesOf(std::string_view(line).substr(each->valueStart)).empty())
      lines_.erase(lines_.begin() + static_cast<std::ptrdiff_t>(each->line));
  }
}

bool HandlerList::hasGroup() const {
  return std::any_of(lines_.begin(), lines_.end(), isGroup);
}

void HandlerList::removeEmptyGroup() {
  const auto group = std::find_if(lines_.begin(), lines_.end(), isGroup);
  if (group == lines_.end()) return;
  const auto next = std::find_if(group + 1, lines_.end(),
                                 [](const std::string& line) { return !trimmed(line).empty(); });
  if (next == lines_.end() || isHeader(*next)) lines_.erase(group);
}

}  // namespace host
