#include "QVROAuth2Client/platform/Value.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <utility>

#include "src/platform/Decimal.h"

namespace qvr {
inline namespace v1 {
namespace {

// What is nested deeper than this prints as "...": a server chooses how deep its values are.
constexpr int kDescribedDepth = 8;

// The number that text begins with; 0 when it begins with none.
double numberInText(std::string_view text) {
  text.remove_prefix(std::min(text.find_first_not_of(" \t\n\v\f\r"), text.size()));
  if (text.starts_with('+')) {
    text.remove_prefix(1);
    if (text.starts_with('-')) return 0;
  }
  return doubleFromDecimal(text);
}

// Numbers as doubles; everything else is not one.
struct NumberReader {
  std::optional<double> operator()(bool value) const { return value ? 1 : 0; }
  std::optional<double> operator()(std::int64_t value) const { return static_cast<double>(value); }
  std::optional<double> operator()(std::uint64_t value) const { return static_cast<double>(value); }
  std::optional<double> operator()(double value) const { return value; }
  std::optional<double> operator()(const std::string& value) const { return numberInText(value); }
  template <class Other>
  std::optional<double> operator()(const Other&) const {
    return std::nullopt;
  }
};

class Describer {
 public:
  void append(const Value& value, int depth) {
    if (value.isNull()) text_ += "<null>";
    if (const auto* boolean = value.as<bool>()) text_ += *boolean ? "1" : "0";
    appendNumber(value.as<std::int64_t>());
    appendNumber(value.as<std::uint64_t>());
    appendNumber(value.as<double>());
    if (const auto* string = value.as<std::string>()) text_ += *string;
    if (const auto* data = value.as<Data>()) {
      text_.append("{length = ").append(std::to_string(data->size())).append("}");
    }
    if (const auto* url = value.as<URL>()) appendURL(*url);
    if (const auto* array = value.as<Value::Array>()) appendArray(*array, depth);
    if (const auto* object = value.as<Value::Object>()) appendObject(*object, depth);
  }

  std::string take() { return std::move(text_); }

 private:
  template <class Number>
  void appendNumber(const Number* number) {
    if (number == nullptr) return;
    char digits[32];
    const auto result = std::to_chars(std::begin(digits), std::end(digits), *number);
    text_.append(digits, result.ptr);
  }

  void appendURL(const URL& url) {
    const std::string& text = url.absoluteString();
    text_.append(text, 0, text.find_first_of("?#"));
  }

  void appendArray(const Value::Array& array, int depth) {
    text_ += '(';
    for (const Value& element : array) {
      if (&element != array.data()) text_ += ", ";
      appendNested(element, depth);
    }
    text_ += ')';
  }

  void appendObject(const Value::Object& object, int depth) {
    text_ += '{';
    for (const Value::Member& member : object) {
      if (&member != object.data()) text_ += ", ";
      text_.append(member.first).append(" = ");
      appendNested(member.second, depth);
    }
    text_ += '}';
  }

  void appendNested(const Value& value, int depth) {
    if (depth < kDescribedDepth) {
      append(value, depth + 1);
    } else {
      text_ += "...";
    }
  }

  std::string text_;
};

}  // namespace

Text Value::text() const {
  const std::string* string = as<std::string>();
  return string != nullptr ? Text(*string) : std::nullopt;
}

std::optional<double> Value::numberValue() const {
  const std::optional<double> number = std::visit(NumberReader{}, storage_);
  return number && std::isfinite(*number) ? number : std::nullopt;
}

const Value* Value::find(std::string_view key) const {
  const Object* object = as<Object>();
  if (object == nullptr) return nullptr;
  const auto member = std::find_if(object->begin(), object->end(),
                                   [key](const Member& m) { return m.first == key; });
  return member != object->end() ? &member->second : nullptr;
}

Value* Value::find(std::string_view key) {
  return const_cast<Value*>(std::as_const(*this).find(key));
}

std::string Value::description() const {
  Describer describer;
  describer.append(*this, 0);
  return describer.take();
}

}  // namespace v1
}  // namespace qvr
