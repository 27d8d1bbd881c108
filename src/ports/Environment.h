// The environment variables of a process, and what they say about where programs are.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace qvr {

// The parts between separators; empty ones are left out.
std::vector<std::string_view> splitWords(std::string_view text, std::string_view separators);

class Environment {
 public:
  // Entries are NAME=value.
  explicit Environment(std::vector<std::string> entries) : entries_(std::move(entries)) {}
  static Environment ofThisProcess();

  const std::vector<std::string>& entries() const { return entries_; }

  // The variable's value; empty when it is not set.
  std::string_view variable(std::string_view name) const;

  // The variable's value, or `otherwise` when it is empty or not set.
  std::string variable(std::string_view name, std::string_view otherwise) const;

  // A copy in which the variable is set.
  Environment with(std::string_view name, std::string_view value) const;

  // Where the shell would find a program, but never in the current folder; empty when it is
  // nowhere. A name with a slash is the path of a program.
  std::string pathOfProgram(std::string_view name) const;

 private:
  std::vector<std::string> entries_;
};

}  // namespace qvr
