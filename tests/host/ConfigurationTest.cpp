// The configuration file: what is read from it, and the one sentence for each mistake in it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "host/Configuration.h"
#include "tests/support/ChildProcess.h"

namespace {

using host::Configuration;
using host::Failure;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

constexpr const char* kPath = "/etc/example/config.toml";

// The text with the one key that every configuration needs, on its first line.
std::variant<Configuration, Failure> parse(const std::string& text) {
  return host::parseConfiguration("bundle_identifier = \"org.example.mail\"\n" + text, kPath);
}

Configuration parsed(const std::string& text) {
  auto result = parse(text);
  if (auto* failure = std::get_if<Failure>(&result)) {
    ADD_FAILURE() << failure->sentence;
    return {};
  }
  return std::get<Configuration>(result);
}

std::string refusal(const std::string& text) {
  auto result = parse(text);
  auto* failure = std::get_if<Failure>(&result);
  if (failure == nullptr) {
    ADD_FAILURE() << "accepted: " << text;
    return "";
  }
  EXPECT_EQ(failure->status, host::kFailed);
  return failure->sentence;
}

TEST(Configuration, ReadsEveryKey) {
  const Configuration all = parsed(R"(
[google]
client_identifier = "123-abc.apps.googleusercontent.com"
client_secret = "secret-value"
custom_uri_scheme = "com.googleusercontent.apps.123-abc"
[microsoft]
application_identifier = "01234567-89AB-cdef-0123-456789abcdef"
[endpoints]
google_authorization_host = "localhost:8443"
google_token_host = "[::1]:8443"
microsoft_login_host = "login.example"
certificate_authority_file = "ca.pem"
[keychain]
kind = "encrypted-file"
directory = "items"
key_file = "/keys/key"
protection = "passphrase"
passphrase_command = "pass show mail"
)");
  EXPECT_EQ(all.path, kPath);
  EXPECT_EQ(all.bundleIdentifier, "org.example.mail");
  EXPECT_EQ(all.google.clientIdentifier, "123-abc.apps.googleusercontent.com");
  EXPECT_EQ(all.google.clientSecret, "secret-value");
  EXPECT_EQ(all.google.customURIScheme, "com.googleusercontent.apps.123-abc");
  EXPECT_EQ(all.microsoft.applicationIdentifier, "01234567-89AB-cdef-0123-456789abcdef");
  EXPECT_EQ(all.endpoints.googleAuthorizationHost, "localhost:8443");
  EXPECT_EQ(all.endpoints.googleTokenHost, "[::1]:8443");
  EXPECT_EQ(all.endpoints.microsoftLoginHost, "login.example");
  EXPECT_EQ(all.endpoints.certificateAuthorityFile, "/etc/example/ca.pem");
  EXPECT_EQ(all.keychain.kind, host::kEncryptedFile);
  EXPECT_EQ(all.keychain.directory, "/etc/example/items");
  EXPECT_EQ(all.keychain.keyFile, "/keys/key");
  EXPECT_EQ(all.keychain.protection, "passphrase");
  EXPECT_EQ(all.keychain.passphraseCommand, "pass show mail");
  EXPECT_THAT(all.warnings, IsEmpty());
}

TEST(Configuration, HasDefaultsForAllButTheRegistrations) {
  const Configuration least = parsed("");
  EXPECT_EQ(least.endpoints.googleAuthorizationHost, "accounts.google.com");
  EXPECT_EQ(least.endpoints.googleTokenHost, "oauth2.googleapis.com");
  EXPECT_EQ(least.endpoints.microsoftLoginHost, "login.microsoftonline.com");
  EXPECT_EQ(least.endpoints.certificateAuthorityFile, "");
  EXPECT_EQ(least.keychain.kind, "") << "not chosen yet";
  EXPECT_EQ(least.keychain.protection, "key-file");
  EXPECT_THAT(least.keychain.directory, testing::EndsWith("/qvr-oauth2/items"));
  EXPECT_THAT(least.keychain.keyFile, testing::EndsWith("/qvr-oauth2/key"));
}

TEST(Configuration, TakesAnEmptyOptionalValueAsLeftOut) {
  const Configuration empty = parsed(R"(
[google]
client_identifier = ""
client_secret = ""
custom_uri_scheme = ""
[microsoft]
application_identifier = ""
[endpoints]
certificate_authority_file = ""
[keychain]
directory = ""
key_file = ""
passphrase_command = ""
)");
  EXPECT_EQ(empty.endpoints.certificateAuthorityFile, "");
  EXPECT_THAT(empty.keychain.directory, testing::EndsWith("/qvr-oauth2/items"));
  EXPECT_TRUE(host::registrationProblem(empty, "Google"));
  EXPECT_TRUE(host::registrationProblem(empty, "Microsoft"));
}

TEST(Configuration, WarnsOfAnUnknownKeyWithItsLine) {
  const Configuration typo = parsed("[google]\nclient_identifer = \"abc\"\n\n[keychian]\nkind=1\n");
  EXPECT_EQ(typo.google.clientIdentifier, "");
  ASSERT_EQ(typo.warnings.size(), 2u);
  EXPECT_THAT(
      typo.warnings,
      testing::UnorderedElementsAre(
          StartsWith("/etc/example/config.toml:3: \"google.client_identifer\" is not a key"),
          StartsWith("/etc/example/config.toml:5: \"keychian\" is not a key")));
}

TEST(Configuration, DoesNotTakeAKeyOfAnotherSection) {
  EXPECT_EQ(parsed("[microsoft]\nclient_identifier = \"abc\"\n").warnings.size(), 1u);
  EXPECT_EQ(parsed("client_secret = \"abc\"\n").warnings.size(), 1u);
}

TEST(Configuration, NamesFileAndLineOfAValueOfTheWrongType) {
  struct Case {
    const char* text;
    const char* sentence;
  };
  const Case cases[] = {
      {"[google]\nclient_identifier = 12",
       "/etc/example/config.toml:3: \"google.client_identifier\" must be a text in double quotes."},
      {"[google]\n\nclient_secret = [\"a\"]", ":4: \"google.client_secret\" must be a text"},
      {"google = \"abc\"", ":2: \"google\" must be a section: write it as [google]."},
      {"[[google]]\nclient_identifier = \"a\"", "\"google\" must be a section"},
      {"[keychain.kind]\nx = 1", "\"keychain.kind\" must be a text"},
      {"[keychain]\nprotection = true", ":3: \"keychain.protection\" must be a text"},
  };
  for (const Case& each : cases)
    EXPECT_THAT(refusal(each.text), HasSubstr(each.sentence));
}

TEST(Configuration, IsNotTOMLWithoutQuotesAndQuotesNothingOfTheFile) {
  for (const char* const text :
       {"[google]\nclient_secret = hunter2hunter2\n", "[google\n", "client_secret: hunter2hunter2",
        "[google]\nclient_secret = \"hunter2hunter2",
        "[google]\nclient_secret = 1.hunter2hunter2\n",
        "[google]\nclient_secret = \"a\"\nclient_secret = \"hunter2hunter2\"\n", "\xff\xfe"}) {
    EXPECT_THAT(refusal(text), AllOf(StartsWith("/etc/example/config.toml:"),
                                     HasSubstr("this is not TOML"), Not(HasSubstr("hunter2"))));
  }
}

TEST(Configuration, RefusesWhatCannotWorkWithoutQuotingIt) {
  struct Case {
    const char* section;
    const char* key;
    std::vector<const char*> values;
    const char* problem;
  };
  const Case cases[] = {
      {"google",
       "client_identifier",
       {"two words", " ", "tab\\t", "line\\n", "caf\\u00e9"},
       "without spaces or line breaks"},
      {"google", "client_secret", {"two words", "trailing "}, "without spaces or line breaks"},
      {"google",
       "custom_uri_scheme",
       {"com.example:", "com.example:/oauth2/auth", "1st", "under_score", "a b"},
       "must be a URI scheme"},
      {"google", "custom_uri_scheme", {"http", "https"}, "must be a scheme of your own"},
      {"microsoft",
       "application_identifier",
       {"abc", "01234567-89ab-cdef-0123-456789abcde", "01234567-89ab-cdef-0123-456789abcdefa",
        "0123456789abcdef0123456789abcdef0123", "g1234567-89ab-cdef-0123-456789abcdef"},
       "36 characters"},
      {"endpoints",
       "google_token_host",
       {"", "https://h", "h/path", "a b", "h:", "h:0", "h:65536", "h:x", ":80", "user@h", "h?x",
        "::1", "[]", "[::1", "[g]", "-h", "h:80:80"},
       "must be a host name"},
      {"keychain", "kind", {"memory", "Secret-Service"}, "must be \\\"secret-service\\\" or"},
      {"keychain", "protection", {"", "none"}, "must be \\\"key-file\\\""},
      {"keychain", "directory", {"~/items"}, "\\\"~\\\" is not expanded"},
  };
  for (const Case& each : cases) {
    for (const char* const value : each.values) {
      const std::string text =
          std::string("[") + each.section + "]\n" + each.key + " = \"" + value + "\"\n";
      std::string problem = each.problem;
      for (std::size_t at; (at = problem.find('\\')) != std::string::npos;)
        problem.erase(at, 1);
      const std::string sentence = refusal(text);
      EXPECT_THAT(sentence, AllOf(StartsWith("/etc/example/config.toml:3: "), HasSubstr(problem)))
          << value;
      if (std::string(value).size() > 8 && problem.find(value) == std::string::npos) {
        EXPECT_THAT(sentence, Not(HasSubstr(value)));
      }
    }
  }
}

TEST(Configuration, NeedsABundleIdentifierThatIsPartOfAScheme) {
  for (const char* const text : {"", "bundle_identifier = \"\"\n", "[google]\n"}) {
    auto result = host::parseConfiguration(text, kPath);
    ASSERT_TRUE(std::holds_alternative<Failure>(result));
    EXPECT_THAT(std::get<Failure>(result).sentence, HasSubstr("holds no bundle_identifier"));
  }
  for (const char* const name : {"org example", "1.org", "org_example", "org.", ".org", "org/x"}) {
    auto result =
        host::parseConfiguration("bundle_identifier = \"" + std::string(name) + "\"\n", kPath);
    ASSERT_TRUE(std::holds_alternative<Failure>(result)) << name;
    EXPECT_THAT(std::get<Failure>(result).sentence, HasSubstr("part of a URI scheme"));
  }
}

TEST(Configuration, RefusesOneSchemeForBothProviders) {
  EXPECT_THAT(refusal("[google]\ncustom_uri_scheme = \"msauth.ORG.example.mail\"\n"),
              HasSubstr("gives both providers one URI scheme"));
}

TEST(Configuration, SaysWhichRegistrationIsMissing) {
  Configuration configuration = parsed("");
  EXPECT_THAT(host::registrationProblem(configuration, "Google")->sentence,
              AllOf(HasSubstr("no client_identifier under [google]"),
                    HasSubstr("run `qvr-oauth2 --config /etc/example/config.toml config`")));
  configuration.google.clientIdentifier = "abc";
  EXPECT_THAT(host::registrationProblem(configuration, "Google")->sentence,
              HasSubstr("no custom_uri_scheme under [google]"));
  configuration.google.customURIScheme = "com.example";
  EXPECT_FALSE(host::registrationProblem(configuration, "Google"));
  EXPECT_THAT(host::registrationProblem(configuration, "Microsoft")->sentence,
              HasSubstr("no application_identifier under [microsoft]"));
  configuration.microsoft.applicationIdentifier = "01234567-89ab-cdef-0123-456789abcdef";
  EXPECT_FALSE(host::registrationProblem(configuration, "Microsoft"));
}

TEST(Configuration, TellsTheRedirectURIsToRegister) {
  EXPECT_EQ(host::googleRedirectURI("com.example"), "com.example:/oauth2/auth");
  EXPECT_EQ(host::microsoftRedirectURI("org.example.mail"), "msauth.org.example.mail://auth");
}

class ConfigurationFile : public testing::Test {
 protected:
  std::string failure(const std::string& path) {
    auto result = host::readConfiguration(path);
    auto* found = std::get_if<Failure>(&result);
    if (found == nullptr) ADD_FAILURE() << "read: " << path;
    return found != nullptr ? found->sentence : "";
  }

  support::TemporaryFolder folder;
};

TEST_F(ConfigurationFile, IsReadAndItsRelativePathsAreBelowItsFolder) {
  const std::string path = folder.write("config.toml",
                                        "bundle_identifier = \"org.example\"\n"
                                        "[endpoints]\ncertificate_authority_file = \"ca.pem\"\n");
  auto result = host::readConfiguration(path);
  ASSERT_TRUE(std::holds_alternative<Configuration>(result));
  EXPECT_EQ(std::get<Configuration>(result).endpoints.certificateAuthorityFile,
            folder.file("ca.pem"));
}

TEST_F(ConfigurationFile, ThatIsMissingIsWrittenByTheConfigCommand) {
  const std::string path = folder.file("none.toml");
  EXPECT_EQ(failure(path), "There is no configuration at " + path + ": run `qvr-oauth2 --config " +
                               path + " config` to write one.");
}

TEST_F(ConfigurationFile, ThatIsNoFileIsNotWaitedFor) {
  EXPECT_THAT(failure(folder.path()), HasSubstr("it is not a small file"));
  const std::string pipe = folder.file("pipe");
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  EXPECT_THAT(failure(pipe), HasSubstr("it is not a small file"));
  EXPECT_THAT(failure(folder.write("large", std::string(1024 * 1024 + 1, '#'))),
              HasSubstr("it is not a small file"));
  EXPECT_THAT(failure(folder.write("file", "") + "/config.toml"), HasSubstr("cannot be read"));
}

TEST_F(ConfigurationFile, WithASecretThatOthersCanReadIsWarnedOf) {
  const std::string path = folder.write("config.toml",
                                        "bundle_identifier = \"org.example\"\n"
                                        "[google]\nclient_secret = \"a-secret\"\n");
  const auto warnings = [&] {
    return std::get<Configuration>(host::readConfiguration(path)).warnings;
  };
  EXPECT_THAT(warnings(), IsEmpty());
  for (const mode_t mode : {0640u, 0604u, 0660u}) {
    ASSERT_EQ(chmod(path.c_str(), mode), 0);
    EXPECT_THAT(warnings(),
                ElementsAre(AllOf(HasSubstr("chmod 600 " + path), Not(HasSubstr("a-secret")))));
  }
}

TEST_F(ConfigurationFile, WithoutASecretMayBeReadByAnybody) {
  const std::string path = folder.write("config.toml", "bundle_identifier = \"org.example\"\n");
  ASSERT_EQ(chmod(path.c_str(), 0644), 0);
  EXPECT_THAT(std::get<Configuration>(host::readConfiguration(path)).warnings, IsEmpty());
}

}  // namespace
