// What can stand behind `qvr-oauth2`: the one place where commands and options are declared. The
// help is made from it; the manual page and the completions are tested against it.
#pragma once

#include <CLI/CLI.hpp>
#include <optional>
#include <string>
#include <string_view>

#include "host/Command.h"
#include "host/Failure.h"

namespace host {

struct Arguments {
  // Before or behind any command.
  std::string configurationPath;
  std::optional<int> passphraseDescriptor;
  std::optional<double> timeoutSeconds;
  bool verbose = false;

  // Of the commands.
  Account account;
  SignInOptions signIn;
  TokenOptions token;
  std::string format = "raw";
  std::optional<std::string> mailHost;
  std::optional<int> mailPort;
  bool noBrowser = false;
  bool localOnly = false;
  bool show = false;
  bool asJSON = false;
  bool all = false;
  std::string url;
  std::string busName;
  std::string keychain;
};

// Declares the options of the application, which fills in `arguments`, and the command of the name;
// all commands when that is the name of none. Declaring all takes longer than reading a token.
void declareArguments(CLI::App& application, Arguments& arguments, std::string_view command = "");

// What the arguments of the command lack, which the parser does not see. Also completes the options
// of the command.
std::optional<Failure> checkArguments(const std::string& command, Arguments& arguments);

// Wrong usage. `command` is the one whose help says more; empty for the help of them all.
Failure usageFailure(std::string sentence, const std::string& command = "");

}  // namespace host
