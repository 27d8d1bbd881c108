// Files with @NAMES@ to fill in: what the guide shows, and what the tests run.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace e2e {

using Values = std::map<std::string, std::string>;

// The file of this folder with its names filled in. A name without a value is an error.
std::string fillTemplate(const std::string& path, const Values& values);

// The names of the recipes, which lie in "recipes".
std::vector<std::string> recipeNames();

}  // namespace e2e
