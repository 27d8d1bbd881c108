#include "host/CommandLine.h"

#include <fcntl.h>

#include <cstdio>
#include <exception>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "host/Arguments.h"
#include "host/Console.h"
#include "host/Deadline.h"
#include "host/NarratedConfiguration.h"
#include "host/Setup.h"
#include "host/Steps.h"

namespace host {
namespace {

constexpr const char* kDescription =
    "Access tokens for mail clients, sync tools and senders.\n"
    "Exit status: 0 done, 1 failed, 2 usage, 3 nothing stored (sign in first), 4 sign in again,\n"
    "5 try again later.";

std::variant<std::string, Failure> configurationPath(const Arguments& arguments) {
  if (!arguments.configurationPath.empty()) return arguments.configurationPath;
  const auto path = defaultConfigurationPath();
  if (!path) return Failure{kFailed, "Your home folder is not known: set HOME."};
  return *path;
}

// Looks at the descriptor before any other is opened that could take its number, and keeps it from
// the programs that are started.
std::optional<Failure> checkPassphraseDescriptor(const std::optional<int>& descriptor) {
  if (!descriptor) return std::nullopt;
  const int flags = fcntl(*descriptor, F_GETFL);
  if (flags >= 0 && (flags & O_ACCMODE) != O_WRONLY && (flags & O_PATH) == 0) {
    fcntl(*descriptor, F_SETFD, FD_CLOEXEC);
    return std::nullopt;
  }
  return Failure{kUsage, "File descriptor " + std::to_string(*descriptor) +
                             ", which --passphrase-fd names, is not open for reading: redirect "
                             "something to it, as in `--passphrase-fd 3 3<FILE`."};
}

// The configuration, with its warnings said.
std::variant<Configuration, Failure> loadConfiguration(const Arguments& arguments) {
  auto path = configurationPath(arguments);
  if (auto* failure = std::get_if<Failure>(&path)) return *failure;
  auto result = readConfiguration(std::get<std::string>(path));
  if (auto* configuration = std::get_if<Configuration>(&result)) {
    if (stepsAreShown()) step(narratedConfiguration(*configuration));
    for (const std::string& warning : configuration->warnings)
      say("warning: " + warning);
    configuration->keychain.passphraseDescriptor = arguments.passphraseDescriptor.value_or(-1);
  }
  return result;
}

int runConfig(const Arguments& arguments) {
  if (arguments.show) {
    auto configuration = loadConfiguration(arguments);
    if (auto* failure = std::get_if<Failure>(&configuration)) return report(*failure);
    return showConfiguration(std::get<Configuration>(configuration));
  }
  auto path = configurationPath(arguments);
  if (auto* failure = std::get_if<Failure>(&path)) return report(*failure);
  return config(std::get<std::string>(path));
}

// The commands that work on the keychain.
int runWithLibrary(const std::string& command, const Arguments& arguments) {
  auto loaded = loadConfiguration(arguments);
  if (auto* failure = std::get_if<Failure>(&loaded)) return report(*failure);
  const auto& configuration = std::get<Configuration>(loaded);
  if (command == "sign-in") {
    if (auto failure = registrationProblem(configuration, arguments.account.provider)) {
      return report(*failure);
    }
  }
  if (auto failure = installHost(configuration)) return report(*failure);
  if (command == "sign-in") return signIn(configuration, arguments.signIn);
  if (command == "token") return token(configuration, arguments.token);
  if (command == "status") return status(configuration, {arguments.account, arguments.asJSON});
  if (command == "sign-out") {
    return signOut(configuration, arguments.account, arguments.localOnly);
  }
  return accounts(configuration, arguments.asJSON);
}

int runUnregister(const Arguments& arguments) {
  if (arguments.all) return unregisterAll();
  auto loaded = loadConfiguration(arguments);
  if (const auto* failure = std::get_if<Failure>(&loaded)) {
    return report({failure->status,
                   failure->sentence + " `qvr-oauth2 unregister --all` needs no configuration."});
  }
  return unregisterSchemes(std::get<Configuration>(loaded));
}

// The commands that need the configuration and not the library.
int runWithConfiguration(const std::string& command, const Arguments& arguments) {
  auto loaded = loadConfiguration(arguments);
  if (auto* failure = std::get_if<Failure>(&loaded)) return report(*failure);
  const auto& configuration = std::get<Configuration>(loaded);
  if (command == "keychain") return moveKeychain(configuration, arguments.keychain);
  return registerSchemes(configuration);
}

int runDoctor(const Arguments& arguments) {
  auto path = configurationPath(arguments);
  if (auto* failure = std::get_if<Failure>(&path)) return report(*failure);
  return doctor({.configurationPath = std::get<std::string>(path),
                 .asJSON = arguments.asJSON,
                 .passphraseDescriptor = arguments.passphraseDescriptor.value_or(-1)});
}

std::string describe(const std::string& command, const Arguments& arguments) {
  if (!arguments.timeoutSeconds) return command;
  char seconds[32];
  std::snprintf(seconds, sizeof seconds, "%g", *arguments.timeoutSeconds);
  return command + ", within " + seconds + " s";
}

int run(const std::string& command, Arguments& arguments) {
  if (auto failure = checkArguments(command, arguments)) return report(*failure);
  if (auto failure = checkPassphraseDescriptor(arguments.passphraseDescriptor))
    return report(*failure);
  showSteps(arguments.verbose);
  if (arguments.timeoutSeconds) setDeadline(*arguments.timeoutSeconds);
  step(describe(command, arguments));
  if (command == "version") return version();
  if (command == "open-url") return openURL(arguments.url);
  if (command == "activate") return activate(arguments.busName);
  if (command == "config") return runConfig(arguments);
  if (command == "doctor") return runDoctor(arguments);
  if (command == "unregister") return runUnregister(arguments);
  if (command == "keychain" || command == "register") {
    return runWithConfiguration(command, arguments);
  }
  return runWithLibrary(command, arguments);
}

// The options among the arguments that nobody took, without their values.
std::string optionNames(const std::vector<std::string>& arguments) {
  std::string names;
  for (const std::string& argument : arguments) {
    if (argument.starts_with("-")) names += " " + argument.substr(0, argument.find('='));
  }
  return names;
}

// What the parser found wrong. Its own words may quote an argument, and a redirect URL among them
// carries a secret: only the names of options are passed on.
Failure failureForParseError(const CLI::App& application, const CLI::ParseError& error) {
  const std::string unknown = optionNames(application.remaining(true));
  if (!unknown.empty()) return usageFailure("This is not an option here:" + unknown + ".");
  if (application.get_subcommands().empty()) {
    return usageFailure(
        "Choose a command: sign-in, token, status, accounts, sign-out, keychain, open-url, "
        "register, unregister, doctor, config or version.");
  }
  const std::string command = application.get_subcommands().front()->get_name();
  if (dynamic_cast<const CLI::ExtrasError*>(&error) != nullptr) {
    return usageFailure("There is an argument too many.", command);
  }
  if (dynamic_cast<const CLI::ConversionError*>(&error) != nullptr) {
    return usageFailure("An option has a value of the wrong kind.", command);
  }
  return usageFailure(std::string(error.what()) + ".", command);
}

// A word that is neither an option nor anything else to the parser.
bool isPlainWord(std::string_view word) {
  const char first = word.empty() ? '\0' : word.front();
  return (first >= 'a' && first <= 'z') || (first >= 'A' && first <= 'Z') ||
         (first >= '0' && first <= '9');
}

// `token PROVIDER USER`, as mail programs run it.
bool isPlainToken(int argc, const char* const* argv) {
  return argc == 4 && std::string_view(argv[1]) == "token" && isPlainWord(argv[2]) &&
         isPlainWord(argv[3]);
}

int parseAndRun(int argc, const char* const* argv) {
  Arguments arguments;
  if (isPlainToken(argc, argv)) {  // making the parser takes longer than reading a token
    arguments.account = {argv[2], argv[3]};
    return run("token", arguments);
  }
  CLI::App application(kDescription, "qvr-oauth2");
  declareArguments(application, arguments, argc > 1 ? argv[1] : "");
  try {
    application.parse(argc, argv);
  } catch (const CLI::CallForHelp&) {
    return writeOut(application.help()) ? kDone : report(cannotWriteOutput());
  } catch (const CLI::CallForVersion&) {
    return version();
  } catch (const CLI::ParseError& error) {
    return report(failureForParseError(application, error));
  }
  return run(application.get_subcommands().front()->get_name(), arguments);
}

}  // namespace

int runCommandLine(int argc, const char* const* argv) {
  try {
    return parseAndRun(argc, argv);
  } catch (const std::bad_alloc&) {
    return report({kFailed, "There is not enough memory."});
  } catch (const std::exception& error) {
    return report({kFailed, std::string("This should not have happened: ") + error.what()});
  }
}

}  // namespace host
