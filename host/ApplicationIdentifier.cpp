#include "host/ApplicationIdentifier.h"

#include <algorithm>

namespace host {
namespace {

constexpr std::string_view kCommand = "org.qvroauth2.command";

bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

bool isLetterOrDigit(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || isDigit(c);
}

std::string lowerCase(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
  return text;
}

// The scheme of a redirect URI.
std::string schemeOf(const std::string& redirectURI) {
  return lowerCase(redirectURI.substr(0, redirectURI.find(':')));
}

}  // namespace

std::string applicationIdentifier(const Configuration& configuration) {
  std::string element = configuration.bundleIdentifier;
  if (element == kCommand) return element;
  std::replace_if(
      element.begin(), element.end(), [](char c) { return !isLetterOrDigit(c); }, '_');
  // No element of a bus name begins with a digit.
  if (!element.empty() && isDigit(element.front())) element.insert(element.begin(), '_');
  return std::string(kCommand) + "." + element;
}

bool isApplicationIdentifier(std::string_view name) {
  if (!name.starts_with(kCommand)) return false;
  name.remove_prefix(kCommand.size());
  return name.empty() || (name.front() == '.' && name.find_first_of("./", 1) == name.npos);
}

std::vector<std::string> redirectSchemes(const Configuration& configuration) {
  std::vector<std::string> schemes;
  const std::string& google = configuration.google.customURIScheme;
  if (!google.empty()) schemes.push_back(schemeOf(googleRedirectURI(google)));
  if (!configuration.microsoft.applicationIdentifier.empty())
    schemes.push_back(schemeOf(microsoftRedirectURI(configuration.bundleIdentifier)));
  return schemes;
}

}  // namespace host
