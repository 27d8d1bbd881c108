// What `doctor` finds: one Check for each thing that it looked at.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace host {

struct Check {
  enum class State {
    kOk,
    kWarning,  // something is missing that signing in can do without, or could not be looked at
    kProblem,
  };

  std::string name;
  State state = State::kOk;
  std::string sentence;
  std::string remedy{};  // the command or step that mends it; empty when there is nothing to mend

  static Check ok(std::string name, std::string sentence) {
    return {std::move(name), State::kOk, std::move(sentence)};
  }
  static Check warning(std::string name, std::string sentence, std::string remedy) {
    return {std::move(name), State::kWarning, std::move(sentence), std::move(remedy)};
  }
  static Check problem(std::string name, std::string sentence, std::string remedy) {
    return {std::move(name), State::kProblem, std::move(sentence), std::move(remedy)};
  }
  // What could not be looked at is no problem: nobody knows.
  static Check unchecked(std::string name, const std::string& reason, std::string remedy) {
    return warning(std::move(name), "Could not be checked: " + reason, std::move(remedy));
  }
};

using Checks = std::vector<Check>;

inline bool isProblem(const Check& check) {
  return check.state == Check::State::kProblem;
}

}  // namespace host
