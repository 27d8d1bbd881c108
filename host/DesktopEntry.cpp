#include "host/DesktopEntry.h"

#include <array>

namespace host {
namespace {

constexpr std::string_view kMark = "X-QVROAuth2-Added";

struct Word {
  AddedToList added;
  std::string_view text;
};
constexpr std::array<Word, 3> kWords{
    {{AddedToList::kLines, "lines"}, {AddedToList::kGroup, "group"}, {AddedToList::kFile, "file"}}};

std::string line(std::string_view key, std::string_view value) {
  return std::string(key) + "=" + std::string(value) + "\n";
}

std::string markLine(AddedToList added) {
  for (const Word& word : kWords) {
    if (word.added == added) return line(kMark, word.text);
  }
  return "";
}

// The text as a value of a key: control characters and backslashes are escaped.
std::string escaped(std::string_view text) {
  constexpr std::string_view kSpecial = "\\\n\t\r";
  constexpr std::string_view kLetters = "\\ntr";
  std::string value;
  for (const char c : text) {
    const std::size_t index = kSpecial.find(c);
    if (index == std::string_view::npos) {
      value += c;
    } else {
      value += {'\\', kLetters[index]};
    }
  }
  return value;
}

// The text as one word of a command line, in double quotes only where it needs them: some openers
// of URLs take words as they stand.
std::string quotedWord(std::string_view text) {
  if (text.find_first_of(" \t\n\r\"'\\><~|&;$*?#()`") == std::string_view::npos)
    return std::string(text);
  std::string word = "\"";
  for (const char c : text) {
    if (c == '"' || c == '`' || c == '$' || c == '\\') word += '\\';
    word += c;
  }
  return word + '"';
}

// In a desktop entry's command line "%" begins a field code.
std::string withoutFieldCodes(std::string_view text) {
  std::string literal;
  for (const char c : text)
    literal += c == '%' ? std::string("%%") : std::string(1, c);
  return literal;
}

}  // namespace

std::string desktopEntryText(const DesktopEntry& entry) {
  const std::string program = escaped(withoutFieldCodes(quotedWord(entry.program)));
  std::string types;
  for (const std::string& scheme : entry.schemes)
    types += typeOfScheme(scheme) + ";";
  return "[Desktop Entry]\n" + line("Type", "Application") + line("Name", escaped(entry.name)) +
         line("Comment", "Takes the browser's answer to a sign-in") + line("NoDisplay", "true") +
         line("TryExec", escaped(entry.program)) + line("Exec", program + " open-url %u") +
         line("DBusActivatable", "true") + line("MimeType", types) + markLine(entry.added);
}

std::string busServiceText(const DesktopEntry& entry) {
  const std::string program = escaped(quotedWord(entry.program));
  return "[D-BUS Service]\n" + line("Name", entry.identifier) +
         line("Exec", program + " activate " + entry.identifier) + markLine(entry.added);
}

std::optional<AddedToList> markOf(std::string_view text) {
  const std::size_t mark = text.find("\n" + std::string(kMark) + "=");
  if (mark == std::string_view::npos) return std::nullopt;
  const std::string_view rest = text.substr(mark + kMark.size() + 2);
  const std::string_view value = rest.substr(0, rest.find('\n'));
  for (const Word& word : kWords) {
    if (word.text == value) return word.added;
  }
  return AddedToList::kLines;
}

std::string typeOfScheme(std::string_view scheme) {
  return "x-scheme-handler/" + std::string(scheme);
}

}  // namespace host
