#include <algorithm>
#include <charconv>
#include <string>
#include <utility>
#include <vector>

#include "src/platform/Decimal.h"
#include "src/platform/JSONReaders.h"
#include "src/platform/JSONText.h"
#include "src/platform/Unicode.h"

namespace qvr {
namespace {

bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

// The arrays and objects that are open stand on a stack of our own. Every member function that
// answers a bool has read what its name says, or has written the failure.
class LenientReader {
 public:
  LenientReader(std::string_view text, const JSONNames& names) : text_(text), names_(names) {}

  std::optional<Value> read() {
    skipWhiteSpace();
    if (!isAt('[') && !isAt('{')) {
      fail(isAtEnd() ? "there is no value" : "the value is neither an array nor an object");
      return std::nullopt;
    }
    if (!readValue()) return std::nullopt;
    while (!open_.empty()) {
      if (!readElement()) return std::nullopt;
    }
    skipWhiteSpace();
    if (!isAtEnd()) {
      fail("there is text after the value");
      return std::nullopt;
    }
    return std::move(root_);
  }

  // The byte offset is in the text.
  const JSONFailure& failure() const { return failure_; }

 private:
  struct Container {
    bool isObject = false;
    Value::Array elements;
    Value::Object members;
    std::string key;  // of the member whose value comes next
  };

  // What stands at the start of an element: the end of the container (after a comma, too), or a
  // value with its key, if any.
  bool readElement() {
    skipWhiteSpace();
    Container& container = open_.back();
    if (take(container.isObject ? '}' : ']')) return closeContainer();
    if (container.isObject && !readKey(container.key)) return false;
    return readValue();
  }

  bool readKey(std::string& key) {
    if (!isAt('"')) return fail("a key is missing");
    if (!readString(key)) return false;
    skipWhiteSpace();
    if (!take(':')) return fail("a colon is missing");
    skipWhiteSpace();
    return true;
  }

  bool readValue() {
    if (isAtEnd()) return fail("the text ends too early");
    switch (text_[position_]) {
      case '[':
      case '{':
        return openContainer();
      case '"': {
        std::string string;
        return readString(string) && addValue(std::move(string));
      }
      case 't':
        return readLiteral("true", true);
      case 'f':
        return readLiteral("false", false);
      case 'n':
        return readLiteral("null", nullptr);
      default:
        return readNumber();
    }
  }

  bool openContainer() {
    if (open_.size() == kJSONDepthLimit) return fail("the nesting is too deep");
    open_.emplace_back();
    open_.back().isObject = text_[position_++] == '{';
    return true;
  }

  bool closeContainer() {
    Container container = std::move(open_.back());
    open_.pop_back();
    if (!container.isObject) return addValue(std::move(container.elements));
    keepFirstOfEqualKeys(container.members);
    return addValue(std::move(container.members));
  }

  // Puts a value where it belongs and reads the comma that separates it from the next.
  bool addValue(Value value) {
    if (open_.empty()) {
      root_ = std::move(value);
      return true;
    }
    Container& container = open_.back();
    if (container.isObject) {
      const bool isBuilt = open_.size() > 1 || isWanted(names_, container.key);
      if (isBuilt) container.members.emplace_back(std::move(container.key), std::move(value));
    } else {
      container.elements.push_back(std::move(value));
    }
    skipWhiteSpace();
    if (take(',') || isAt(container.isObject ? '}' : ']')) return true;
    return fail(isAtEnd() ? "the text ends too early" : "a comma is missing");
  }

  bool readLiteral(std::string_view word, Value value) {
    if (!text_.substr(position_).starts_with(word)) return fail("a value is missing or malformed");
    position_ += word.size();
    return addValue(std::move(value));
  }

  bool readNumber() {
    const std::size_t start = position_;
    take('-');
    if (isAtEnd() || !isDigit(text_[position_])) {
      position_ = start;
      return fail("a value is missing or malformed");
    }
    if (take('0') && !isAtEnd() && isDigit(text_[position_])) return fail("a number begins with 0");
    skipDigits();
    bool isInteger = true;
    if (take('.')) {
      isInteger = false;
      if (!skipDigits()) return fail("a digit is missing");
    }
    if (take('e') || take('E')) {
      isInteger = false;
      if (!take('-')) take('+');
      if (!skipDigits()) return fail("a digit is missing");
    }
    return addValue(numberOf(text_.substr(start, position_ - start), isInteger));
  }

  // An integer if it is written as one and 64 bits hold it.
  static Value numberOf(std::string_view digits, bool isInteger) {
    const char* const end = digits.data() + digits.size();
    std::int64_t integer = 0;
    if (isInteger && std::from_chars(digits.data(), end, integer).ec == std::errc()) return integer;
    std::uint64_t large = 0;
    if (isInteger && digits[0] != '-' &&
        std::from_chars(digits.data(), end, large).ec == std::errc()) {
      return large;
    }
    return doubleFromDecimal(digits);
  }

  bool readString(std::string& string) {
    string.clear();
    ++position_;
    while (!take('"')) {
      const std::size_t start = position_;
      while (!isAtEnd() && isOrdinary(text_[position_]))
        ++position_;
      string.append(text_, start, position_ - start);
      if (isAtEnd()) return fail("the text ends in a string");
      if (isAt('"')) continue;
      if (!isAt('\\')) return fail("a string has a control character");
      if (!readEscape(string)) return false;
    }
    return true;
  }

  static bool isOrdinary(char c) {
    return c != '"' && c != '\\' && static_cast<unsigned char>(c) >= 0x20;
  }

  bool readEscape(std::string& string) {
    constexpr std::string_view kLetters = "\"\\/bfnrtu";
    constexpr std::string_view kMeanings = "\"\\/\b\f\n\r\t";
    const std::size_t letter =
        position_ + 1 < text_.size() ? kLetters.find(text_[position_ + 1]) : std::string_view::npos;
    if (letter == std::string_view::npos) return fail("an escape is malformed");
    if (letter == kMeanings.size()) return readUnicodeEscape(string);
    string.push_back(kMeanings[letter]);
    position_ += 2;
    return true;
  }

  // One escape, or the two of a surrogate pair.
  bool readUnicodeEscape(std::string& string) {
    std::u16string units;
    std::string character;
    const std::size_t start = position_;
    do {
      char16_t unit = 0;
      if (!readCodeUnit(unit)) return false;
      units.push_back(unit);
    } while (units.size() == 1 && (units[0] & 0xFC00) == 0xD800 &&
             text_.substr(position_).starts_with("\\u"));
    if (!UTF8FromUTF16(units, &character)) {
      position_ = start;
      return fail("an escaped surrogate is alone");
    }
    string.append(character);
    return true;
  }

  bool readCodeUnit(char16_t& unit) {
    const std::string_view digits = text_.substr(position_ + 2, 4);
    std::uint16_t code = 0;
    const auto [end, error] =
        std::from_chars(digits.data(), digits.data() + digits.size(), code, 16);
    if (error != std::errc() || end - digits.data() != 4) return fail("an escape is malformed");
    unit = code;
    position_ += 6;
    return true;
  }

  bool isAtEnd() const { return position_ == text_.size(); }
  bool isAt(char c) const { return !isAtEnd() && text_[position_] == c; }

  bool take(char c) {
    if (!isAt(c)) return false;
    ++position_;
    return true;
  }

  bool skipDigits() {
    const std::size_t start = position_;
    while (!isAtEnd() && isDigit(text_[position_]))
      ++position_;
    return position_ > start;
  }

  void skipWhiteSpace() {
    position_ = std::min(text_.find_first_not_of(" \t\n\r", position_), text_.size());
  }

  bool fail(std::string_view reason) {
    failure_ = {reason, position_};
    return false;
  }

  const std::string_view text_;
  const JSONNames& names_;
  std::size_t position_ = 0;
  std::vector<Container> open_;
  Value root_;
  JSONFailure failure_;
};

}  // namespace

std::optional<Value> readLenientJSON(std::span<const std::uint8_t> data, JSONFailure* failure,
                                     const JSONNames& names) {
  const JSONText text(data);
  if (!text.isWellFormed()) {
    *failure = {"the text is not well-formed Unicode", text.byteOffset(text.utf8().size())};
    return std::nullopt;
  }
  LenientReader reader(text.utf8(), names);
  std::optional<Value> value = reader.read();
  if (!value) *failure = {reader.failure().reason, text.byteOffset(reader.failure().byteOffset)};
  return value;
}

}  // namespace qvr
