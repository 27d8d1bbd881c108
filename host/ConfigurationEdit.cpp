#include "host/ConfigurationEdit.h"

#include <toml++/toml.h>

#include <algorithm>
#include <variant>
#include <vector>

#include "host/Configuration.h"
#include "host/FileWriting.h"

namespace host {
namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

// Where a line (counted from 1) begins.
std::size_t startOfLine(std::string_view text, std::size_t line) {
  std::size_t start = text.starts_with(kByteOrderMark) ? kByteOrderMark.size() : 0;
  for (; line > 1 && start < text.size(); --line)
    start = std::min(text.find('\n', start), text.size() - 1) + 1;
  return start;
}

// Columns count characters, and begin with 1.
std::size_t offsetOf(std::string_view text, const toml::source_position& position) {
  std::size_t offset = startOfLine(text, position.line);
  for (toml::source_index column = position.column; column > 1 && offset < text.size(); --column) {
    ++offset;
    while (offset < text.size() && (static_cast<unsigned char>(text[offset]) & 0xc0) == 0x80)
      ++offset;
  }
  return offset;
}

std::string inserted(std::string_view text, std::size_t offset, const std::string& addition) {
  return std::string(text.substr(0, offset)).append(addition).append(text.substr(offset));
}

// The ways of writing the key down, of which the first that reads back as wanted is taken: TOML has
// several forms of a section, and what does not fit the one in use gives another table.
class Edit {
 public:
  Edit(std::string_view text, std::string_view kind) : text_(text), kind_(kind) {}

  std::vector<std::string> candidates(const toml::table& file) const {
    const toml::node* const section = file.get("keychain");
    const toml::table* const table = section != nullptr ? section->as_table() : nullptr;
    if (table == nullptr) return {withNewSection()};
    if (const toml::node* const value = table->get("kind")) return {withValue(value->source())};
    const toml::source_position& start = table->source().begin;
    const std::size_t header = startOfLine(text_, start.line);
    const std::size_t brace = offsetOf(text_, start) + 1;
    return {behindLine(header), withNewSection(),
            inserted(text_, header, "keychain." + assignment() + lineEnd()),
            inserted(text_, brace, " " + assignment() + ","),
            inserted(text_, brace, " " + assignment() + " ")};
  }

 private:
  std::string value() const { return "\"" + std::string(kind_) + "\""; }
  std::string assignment() const { return "kind = " + value(); }

  std::string lineEnd() const {
    const std::size_t newline = text_.find('\n');
    const bool isDouble =
        newline != std::string_view::npos && newline > 0 && text_[newline - 1] == '\r';
    return isDouble ? "\r\n" : "\n";
  }

  std::string withValue(const toml::source_region& source) const {
    const std::size_t start = offsetOf(text_, source.begin);
    return std::string(text_.substr(0, start))
        .append(value())
        .append(text_.substr(offsetOf(text_, source.end)));
  }

  std::string behindLine(std::size_t start) const {
    const std::size_t newline = text_.find('\n', start);
    if (newline == std::string_view::npos)
      return std::string(text_) + lineEnd() + assignment() + lineEnd();
    return inserted(text_, newline + 1, assignment() + lineEnd());
  }

  std::string withNewSection() const {
    const bool isOpen = !text_.empty() && !text_.ends_with('\n');
    return std::string(text_) + (isOpen ? lineEnd() : "") + (text_.empty() ? "" : lineEnd()) +
           "[keychain]" + lineEnd() + assignment() + lineEnd();
  }

  const std::string_view text_;
  const std::string_view kind_;
};

toml::table wantedTable(toml::table file, std::string_view kind) {
  toml::node& section = file.insert("keychain", toml::table()).first->second;
  if (toml::table* const table = section.as_table()) table->insert_or_assign("kind", kind);
  return file;
}

bool readsAs(const std::string& text, const toml::table& wanted) {
  try {
    return toml::parse(text) == wanted;
  } catch (const toml::parse_error&) {
    return false;
  }
}

}  // namespace

std::optional<std::string> withKeychainKind(std::string_view text, std::string_view kind) {
  try {
    const toml::table file = toml::parse(text);
    const toml::table wanted = wantedTable(file, kind);
    for (std::string& candidate : Edit(text, kind).candidates(file)) {
      if (readsAs(candidate, wanted)) return std::move(candidate);
    }
  } catch (const toml::parse_error&) {
    return std::nullopt;
  }
  return std::nullopt;
}

std::optional<Failure> writeKeychainKind(const std::string& path, std::string_view kind) {
  mode_t mode = 0;
  auto text = readConfigurationText(path, &mode);
  if (auto* failure = std::get_if<Failure>(&text)) return *failure;
  const auto edited = withKeychainKind(std::get<std::string>(text), kind);
  if (!edited) {
    return Failure{kFailed, "No place for keychain.kind was found in the configuration " + path +
                                ": write kind = \"" + std::string(kind) +
                                "\" under [keychain] yourself."};
  }
  return replaceFile(path, *edited, mode & 07777);
}

}  // namespace host
