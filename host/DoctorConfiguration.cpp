// `doctor` on the configuration, and on what has to be in it.
#include <unistd.h>

#include <cerrno>

#include "QVROAuth2Client/QVROAuth2Provider.h"
#include "host/DoctorChecks.h"
#include "host/Messages.h"

namespace host {
namespace {

constexpr const char* kConfiguration = "configuration";
constexpr const char* kRegistrations = "registrations";

bool isMissing(const std::string& path) {
  return access(path.c_str(), F_OK) != 0 && errno == ENOENT;
}

std::string registerAt(const std::string& path) {
  return "Run " + configCommand(path) + ": it says where to register, and asks for the rest.";
}

}  // namespace

Checks checkConfiguration(const std::variant<Configuration, Failure>& result,
                          const std::string& path) {
  if (const auto* failure = std::get_if<Failure>(&result)) {
    if (isMissing(path))
      return {Check::problem(kConfiguration, "There is no configuration at " + path + ".",
                             configCommand(path) + " asks for what belongs into it.")};
    return {Check::problem(kConfiguration, failure->sentence,
                           "Correct the file, or write a new one: " + configCommand(path))};
  }
  const auto& configuration = std::get<Configuration>(result);
  if (configuration.warnings.empty())
    return {Check::ok(kConfiguration, "The configuration is " + path + ".")};
  Checks checks;
  for (const std::string& warning : configuration.warnings)
    checks.push_back(Check::warning(kConfiguration, warning, "Correct " + path + "."));
  return checks;
}

Check needsRegistration(std::string name) {
  return Check::unchecked(std::move(name), "it needs a registration.",
                          "Register at a provider first.");
}

Check checkRegistrations(const Configuration& configuration) {
  const auto google = registrationProblem(configuration, QVROAuth2ProviderGoogle);
  const auto microsoft = registrationProblem(configuration, QVROAuth2ProviderMicrosoft);
  const std::string remedy = registerAt(configuration.path);
  if (google && microsoft) {
    return Check::problem(kRegistrations, "There is no registration at any provider.", remedy);
  }
  if (google && !configuration.google.clientIdentifier.empty())
    return Check::warning(kRegistrations, google->sentence, remedy);
  if (google) return Check::ok(kRegistrations, "Microsoft is registered, Google is not.");
  if (microsoft) return Check::ok(kRegistrations, "Google is registered, Microsoft is not.");
  return Check::ok(kRegistrations, "Google and Microsoft are registered.");
}

}  // namespace host
