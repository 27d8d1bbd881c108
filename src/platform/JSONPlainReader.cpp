// The fast reader: simdjson, held to the rules of JSON.h.
#include <simdjson.h>

#include <utility>

#include "src/platform/JSONReaders.h"

namespace qvr {
namespace {

namespace dom = simdjson::dom;

Value valueOf(const dom::element& element);

// Nesting was bounded while parsing, so this recursion is too.
Value arrayOf(const dom::array& array) {
  Value::Array values;
  values.reserve(array.size());
  for (const dom::element element : array)
    values.push_back(valueOf(element));
  return values;
}

Value objectOf(const dom::object& object, const JSONNames& names = {}) {
  Value::Object members;
  members.reserve(names ? names->size() : object.size());
  for (const auto [key, element] : object) {
    if (isWanted(names, key)) members.emplace_back(key, valueOf(element));
  }
  keepFirstOfEqualKeys(members);
  return members;
}

Value valueOf(const dom::element& element) {
  switch (element.type()) {
    case dom::element_type::ARRAY:
      return arrayOf(element.get_array().value_unsafe());
    case dom::element_type::OBJECT:
      return objectOf(element.get_object().value_unsafe());
    case dom::element_type::INT64:
      return element.get_int64().value_unsafe();
    case dom::element_type::UINT64:
      return element.get_uint64().value_unsafe();
    case dom::element_type::DOUBLE:
      return element.get_double().value_unsafe();
    case dom::element_type::STRING:
      return element.get_string().value_unsafe();
    case dom::element_type::BOOL:
      return element.get_bool().value_unsafe();
    case dom::element_type::NULL_VALUE:
      break;
  }
  return nullptr;
}

}  // namespace

// The parser is made anew each time: a kept one would keep the tokens of the last body.
std::optional<Value> readPlainJSON(std::span<const std::uint8_t> data, const JSONNames& names) {
  if (data.empty()) return std::nullopt;  // the parser copies from its null pointer
  dom::parser parser;
  // Its depth leaves out an innermost container that is empty, so the limit may not be passed by
  // one more; the lenient reader takes what is refused for that.
  if (parser.allocate(data.size(), kJSONDepthLimit) != simdjson::SUCCESS) return std::nullopt;
  dom::element root;
  if (parser.parse(data.data(), data.size()).get(root) != simdjson::SUCCESS) return std::nullopt;
  if (root.is_object()) return objectOf(root.get_object().value_unsafe(), names);
  if (root.is_array()) return arrayOf(root.get_array().value_unsafe());
  return std::nullopt;
}

}  // namespace qvr
