#include "host/NarratedConfiguration.h"

#include "host/Steps.h"

namespace host {
namespace {

std::string narrated(const Configuration::Google& google) {
  if (google.clientIdentifier.empty()) return "Google is not registered";
  const std::string secret =
      google.clientSecret.empty() ? "no secret" : "secret " + lengthOf(google.clientSecret);
  return "Google is registered as " + google.clientIdentifier + " (scheme " +
         google.customURIScheme + ", " + secret + ")";
}

std::string narrated(const Configuration::Microsoft& microsoft) {
  if (microsoft.applicationIdentifier.empty()) return "Microsoft is not registered";
  return "Microsoft is registered as " + microsoft.applicationIdentifier;
}

std::string narrated(const Configuration::Endpoints& endpoints) {
  const std::string authority =
      endpoints.certificateAuthorityFile.empty()
          ? "the system's certificate authorities"
          : "the certificate authorities in " + endpoints.certificateAuthorityFile;
  return "servers " + endpoints.googleAuthorizationHost + ", " + endpoints.googleTokenHost +
         " and " + endpoints.microsoftLoginHost + ", trusted by " + authority;
}

}  // namespace

std::string narratedConfiguration(const Configuration& configuration) {
  return "configuration: " + configuration.path + " for " + configuration.bundleIdentifier + ": " +
         narrated(configuration.google) + ", " + narrated(configuration.microsoft) + "; " +
         narrated(configuration.endpoints);
}

}  // namespace host
