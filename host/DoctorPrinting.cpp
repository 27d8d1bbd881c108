#include "host/DoctorPrinting.h"

#include <algorithm>
#include <iterator>
#include <string_view>
#include <vector>

#include "host/JSONWriting.h"
#include "host/ShownText.h"

namespace host {
namespace {

constexpr std::size_t kStateWidth = 9;

std::string_view nameOf(Check::State state) {
  switch (state) {
    case Check::State::kOk:
      return "ok";
    case Check::State::kWarning:
      return "warning";
    case Check::State::kProblem:
      return "problem";
  }
  return "problem";
}

// A JSON string without secrets.
std::string quoted(std::string_view text) {
  return jsonString(shown(text));
}

std::string objectOf(const Check& check) {
  return jsonObject({{"name", quoted(check.name)},
                     {"state", quoted(nameOf(check.state))},
                     {"message", quoted(check.sentence)},
                     {"remedy", quoted(check.remedy)}});
}

}  // namespace

std::string textOf(const Checks& checks) {
  std::string text;
  for (const Check& check : checks) {
    std::string state(nameOf(check.state));
    state.resize(kStateWidth, ' ');
    text += state + shown(check.name) + ": " + shown(check.sentence) + "\n";
    if (!check.remedy.empty()) text += std::string(kStateWidth, ' ') + shown(check.remedy) + "\n";
  }
  return text;
}

std::string jsonOf(const Checks& checks) {
  std::vector<std::string> objects;
  std::transform(checks.begin(), checks.end(), std::back_inserter(objects), objectOf);
  const auto problems = std::count_if(checks.begin(), checks.end(), isProblem);
  return jsonObject({{"checks", jsonArray(objects)}, {"problems", std::to_string(problems)}}) +
         "\n";
}

}  // namespace host
