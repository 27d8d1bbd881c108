#include "tests/e2e/mail/Template.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <stdexcept>

namespace e2e {

namespace {

std::string read(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw std::runtime_error("cannot read " + path);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

}  // namespace

std::string fillTemplate(const std::string& path, const Values& values) {
  static const std::regex kName("@([A-Z_]+)@");
  const std::string text = read(std::string(QVR_MAIL_FOLDER) + "/" + path);
  std::string filled;
  auto rest = text.cbegin();
  for (std::smatch found; std::regex_search(rest, text.cend(), found, kName);
       rest = found.suffix().first) {
    const auto value = values.find(found[1]);
    if (value == values.end()) throw std::runtime_error(path + ": no value for " + found.str());
    filled += found.prefix().str() + value->second;
  }
  return filled + std::string(rest, text.cend());
}

std::vector<std::string> recipeNames() {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(QVR_MAIL_FOLDER "/recipes")) {
    names.push_back(entry.path().filename());
  }
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace e2e
