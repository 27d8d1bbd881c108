#include "tests/e2e/SecretsTest.h"

#include <sys/stat.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <regex>

namespace e2e {

namespace {

namespace fs = std::filesystem;

constexpr const char* kSharedMemory = "/dev/shm";

std::string read(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

std::set<std::string> namesIn(const char* folder) {
  std::set<std::string> names;
  for (const auto& entry : fs::directory_iterator(folder))
    names.insert(entry.path());
  return names;
}

// The programs by which a desktop takes a redirect to the command have it among their arguments,
// as each desktop does it: a code is of no use without its verifier (RFC 7636 section 1).
bool carriesRedirect(const Execution& execution, const std::string& handler) {
  const auto& arguments = execution.arguments;
  if (execution.path == handler) return true;
  if (execution.path == QVR_OAUTH2_PROGRAM && arguments.size() > 1 && arguments[1] == "open-url")
    return true;
  const bool isShell = arguments.size() > 2 && arguments[0] == "/bin/sh" && arguments[1] == "-c";
  return isShell && arguments[2] == handler + " \"$1\"";
}

std::string titleOf(const std::vector<std::string>& arguments, const std::set<std::string>& typed) {
  std::string title = "qvr-oauth2";
  for (const std::string& argument : arguments)
    title += typed.contains(argument) ? " ..." : " " + argument;
  return title;
}

std::string textBefore(const std::string& text, std::size_t position) {
  const std::string before = text.substr(0, position);
  return ", behind \"" + before.substr(before.size() - std::min<std::size_t>(before.size(), 60)) +
         "\"";
}

}  // namespace

SecretsTest::SecretsTest() : sharedMemory_(namesIn(kSharedMemory)) {
  for (const char* const name : {"tmp", "cache", "state"})
    fs::create_directory(folder.file(name));
  keepSecret(kClientSecret, counterpart.ready("google", "clientSecret"));
}

SecretsTest::Watched SecretsTest::begin(const std::vector<std::string>& arguments,
                                        const RunOptions& options) {
  Watched watched{nullptr, nullptr, arguments, options};
  if (isVerbose_) watched.arguments.emplace_back("--verbose");
  std::vector<std::string> words = {QVR_OAUTH2_PROGRAM};
  words.insert(words.end(), watched.arguments.begin(), watched.arguments.end());
  if (!options.redirections.empty()) {
    const std::string script = "exec \"$0\" \"$@\" " + options.redirections;
    words.insert(words.begin(), {"/bin/sh", "-c", script});
  }
  auto environment = options.environment;
  environment.insert({{"TMPDIR", folder.file("tmp")},
                      {"XDG_CACHE_HOME", folder.file("cache")},
                      {"XDG_STATE_HOME", folder.file("state")}});
  watched.watch = std::make_unique<SecretWatch>(folder.file("watch-" + std::to_string(++runs_)));
  watched.process = startProgram(watched.watch->wrapped(words), std::move(environment));
  if (!options.input.empty()) watched.process->writeInput(options.input);
  return watched;
}

Result SecretsTest::end(Watched& watched) {
  const Result result = resultOf(*watched.process);
  const std::string title = titleOf(watched.arguments, watched.options.typed);
  const bool printsToken = watched.arguments.front() == "token";
  if (printsToken && !result.output.empty()) {
    EXPECT_FALSE(secretsInUse().findIn(result.output).empty()) << "the search finds no token";
  }
  collect("the output of " + title, result.output,
          printsToken ? std::set<std::string>{kAccessToken} : std::set<std::string>{});
  collect("the diagnostics of " + title, result.error);
  const std::vector<Execution> executions = watched.watch->finish();
  for (const Execution& execution : executions) {
    const bool isTyped = execution.process == executions.front().process;
    collectExecution(execution, isTyped ? watched.options.typed : std::set<std::string>{});
  }
  collectFiles();
  return result;
}

Result SecretsTest::watch(const std::vector<std::string>& arguments, const RunOptions& options) {
  Watched watched = begin(arguments, options);
  return end(watched);
}

void SecretsTest::bothWays(const std::function<void()>& steps) {
  for (const bool isVerbose : {false, true}) {
    SCOPED_TRACE(isVerbose ? "with --verbose" : "without --verbose");
    isVerbose_ = isVerbose;
    ASSERT_NO_FATAL_FAILURE(steps());
  }
  isVerbose_ = false;
}

RunOptions SecretsTest::browser(const std::string& user, const std::string& how) {
  RunOptions options;
  options.environment = {{"BROWSER", browserFor(user, how)}};
  const std::string handler = folder.file("handler");
  folder.write("handler", "#!/bin/sh\nexec '" QVR_OAUTH2_PROGRAM "' open-url \"$1\" " +
                              std::string(isVerbose_ ? "--verbose" : "") + " >>'" +
                              folder.file("open-url-said") + "' 2>&1\n");
  chmod(handler.c_str(), S_IRWXU);
  return options;
}

void SecretsTest::signInWatched() {
  const Result result = watch({"sign-in", provider(), kUser}, browser());
  ASSERT_EQ(result.status, 0) << result.error;
}

SecretsTest::Watched SecretsTest::beginSignIn(const std::string& user) {
  Watched waiting = begin({"sign-in", provider(), user, "--no-browser"});
  EXPECT_TRUE(waiting.process->waitForError("press Enter")) << waiting.process->error();
  collectFiles();
  return waiting;
}

std::string SecretsTest::redirectOf(const Watched& waiting, const std::string& user) {
  std::smatch found;
  const std::string printed = waiting.process->error();
  EXPECT_TRUE(std::regex_search(printed, found, std::regex("\n\n(https://\\S+)\n"))) << printed;
  const auto browser = startBrowser(counterpart.certificateAuthority(), user, found[1]);
  EXPECT_EQ(browser->wait(), 0) << browser->error();
  return browser->output().substr(0, browser->output().find('\n'));
}

SecretsTest::Faults SecretsTest::echoing(const std::vector<std::string>& names) {
  std::string echo = "got";
  for (const std::string& name : names)
    echo += " {{" + name + "}}, encoded {{%" + name + "}},";
  const auto answer = [](int status, const std::string& error, const std::string& description) {
    return R"(,"status":)" + std::to_string(status) + R"(,"body":"{\"error\":\")" + error +
           R"(\",\"error_description\":\")" + description + R"(\"}")";
  };
  Faults faults = {
      {"status", answer(400, "invalid_grant", echo)},
      {"status", answer(401, "invalid_client", echo)},
      {"status", answer(400, echo, echo)},
      {"status", answer(500, "server_error", echo)},
      {"status",
       answer(503, "temporarily_unavailable", echo) + R"(,"headers":{"retry-after":"1"})"},
      {"status", R"(,"status":200,"contentType":"text/html","body":"<p>)" + echo + "\""}};
  // At each length at which a message may be cut, in the middle of what is repeated.
  for (const std::size_t length : {110U, 235U, 280U}) {
    const std::string words(length, '-');
    faults.emplace_back("status",
                        answer(400, "invalid_grant", words + " {{" + names.front() + "}}"));
  }
  return faults;
}

void SecretsTest::expectFailure(const Result& result, int status) {
  EXPECT_TRUE(status < 0 || result.status == status) << result.status << result.error;
  EXPECT_NE(result.status, 0);
  EXPECT_EQ(result.output, "");
  EXPECT_NE(result.error, "");
}

void SecretsTest::collect(const std::string& place, const std::string& text,
                          const std::set<std::string>& mayHold) {
  std::vector<Piece>& pieces = collected_[place];
  const bool isKnown = std::any_of(pieces.begin(), pieces.end(),
                                   [&](const Piece& piece) { return piece.text == text; });
  if (!isKnown) pieces.push_back({text, mayHold});
}

void SecretsTest::collectExecution(const Execution& execution, const std::set<std::string>& typed) {
  ++executions_;
  const std::set<std::string> mayHold = carriesRedirect(execution, folder.file("handler"))
                                            ? std::set<std::string>{kCode}
                                            : std::set<std::string>{};
  for (const std::string& argument : execution.arguments) {
    if (!typed.contains(argument)) collect("an argument of " + execution.path, argument, mayHold);
  }
  for (const std::string& variable : execution.environment)
    collect("the environment of " + execution.path, variable);
}

// The configuration is where the user wrote the client secret, and the key file where the key is.
void SecretsTest::collectFolder(const std::string& path) {
  const std::map<std::string, std::set<std::string>> mayHold = {
      {"config/qvr-oauth2/config.toml", {kClientSecret}},
      {"config/qvr-oauth2/key", {kKey}},
      {"passphrase", {kPassphrase}}};
  for (auto entry = fs::recursive_directory_iterator(path);
       entry != fs::recursive_directory_iterator(); ++entry) {
    const std::string name = entry->path().lexically_relative(folder.path());
    if (name == "provider") {  // the servers' own
      entry.disable_recursion_pending();
      continue;
    }
    collect("the names of files", name);
    if (!entry->is_regular_file()) continue;
    const auto known = mayHold.find(name);
    collect("the file " + name, read(entry->path()),
            known == mayHold.end() ? std::set<std::string>{} : known->second);
  }
}

void SecretsTest::collectFiles() {
  collectFolder(folder.path());
  for (const std::string& path : namesIn(kSharedMemory)) {
    if (sharedMemory_.contains(path)) continue;
    collect("the names of shared memory", path);
    collect("the shared memory " + path, read(path));
  }
  collect("the names of sockets", read("/proc/net/unix"));
}

void SecretsTest::keepSecret(const std::string& kind, const std::string& text) {
  own_.push_back({kind, text});
}

std::string SecretsTest::contentOf(const std::string& name) const {
  return read(folder.file(name));
}

SecretForms SecretsTest::secretsInUse() {
  SecretForms forms;
  for (const Secret& secret : own_)
    forms.add(secret);
  if (const std::string key = contentOf("config/qvr-oauth2/key"); !key.empty())
    forms.add({kKey, key});
  const qvr::Value answer = counterpart.get("/secrets");
  for (const qvr::Value& secret : *answer.find("secrets")->as<qvr::Value::Array>())
    forms.add({*secret.find("kind")->text(), *secret.find("text")->text()});
  forms.ignore("\"" + std::string(kUser) + "\"");
  return forms;
}

void SecretsTest::TearDown() {
  const SecretForms secrets = secretsInUse();
  EXPECT_GE(executions_, runs_) << "each run is an execution at least";
  for (const auto& [place, pieces] : collected_) {
    for (const Piece& piece : pieces) {
      for (const SecretForms::Find& find : secrets.findIn(piece.text)) {
        if (piece.mayHold.contains(find.kind)) continue;
        ADD_FAILURE() << "a secret of kind " << find.kind << ", " << find.form << ", in " << place
                      << textBefore(piece.text, find.position);
      }
    }
  }
}

}  // namespace e2e
