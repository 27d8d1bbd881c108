// What a reader gets of JSON that the command wrote.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "QVROAuth2Client/platform/JSON.h"

namespace host_test {

// The value; a failure when the text is not a line of JSON.
inline qvr::Value parsedJSON(const std::string& text) {
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), text.ends_with("\n") ? 1 : 0) << text;
  qvr::ErrorPtr error;
  const auto value = qvr::JSONObjectWithData(qvr::Data(text.begin(), text.end()), &error);
  EXPECT_TRUE(value) << text;
  return value.value_or(qvr::Value());
}

// The names of an object's members, as they were written.
inline std::vector<std::string> memberNames(const qvr::Value& value) {
  std::vector<std::string> names;
  const auto* const members = value.as<qvr::Value::Object>();
  EXPECT_NE(members, nullptr);
  if (members == nullptr) return names;
  for (const auto& [name, member] : *members)
    names.push_back(name);
  return names;
}

// A member of an object; null, with a failure, when there is none.
inline qvr::Value memberOf(const qvr::Value& value, const std::string& name) {
  const qvr::Value* const member = value.find(name);
  EXPECT_NE(member, nullptr) << name;
  return member == nullptr ? qvr::Value() : *member;
}

}  // namespace host_test
