// The JSON parser alone.
#include <simdjson.h>

#include "Floor.h"

size_t floor_token_response(const char* json, size_t size) {
  static simdjson::dom::parser& parser = *new simdjson::dom::parser;
  simdjson::dom::object object;
  if (parser.parse(json, size).get(object) != simdjson::SUCCESS) return 0;
  size_t length = 0;
  for (const char* const name : {"access_token", "token_type", "refresh_token", "scope"}) {
    std::string_view value;
    if (object[name].get(value) == simdjson::SUCCESS) length += value.size();
  }
  return length;
}
