// The command's name on the desktop, and the schemes of its redirects.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/ApplicationIdentifier.h"

namespace host {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::string identifierFor(const std::string& bundleIdentifier) {
  Configuration configuration;
  configuration.bundleIdentifier = bundleIdentifier;
  return applicationIdentifier(configuration);
}

TEST(ApplicationIdentifierTest, OwnBundleIdentifierIsTheName) {
  EXPECT_EQ(identifierFor("org.qvroauth2.command"), "org.qvroauth2.command");
}

TEST(ApplicationIdentifierTest, EveryOtherBundleIdentifierIsOneElementBelowIt) {
  EXPECT_EQ(identifierFor("org.example.mail"), "org.qvroauth2.command.org_example_mail");
  EXPECT_EQ(identifierFor("org.example.my-mail"), "org.qvroauth2.command.org_example_my_mail");
  EXPECT_EQ(identifierFor("Mail"), "org.qvroauth2.command.Mail");
  EXPECT_EQ(identifierFor("org.qvroauth2.command.x"),
            "org.qvroauth2.command.org_qvroauth2_command_x");
}

TEST(ApplicationIdentifierTest, NoElementBeginsWithADigit) {
  EXPECT_EQ(identifierFor("7mail"), "org.qvroauth2.command._7mail");
}

TEST(ApplicationIdentifierTest, NamesAreToldFromThoseOfOtherApplications) {
  for (const std::string bundle : {"org.qvroauth2.command", "org.example.my-mail", "7mail"})
    EXPECT_TRUE(isApplicationIdentifier(identifierFor(bundle))) << bundle;
  for (const char* const name : {"", "org.qvroauth2", "org.qvroauth2.commander",
                                 "org.qvroauth2.command.a.b", "org.example.mail"})
    EXPECT_FALSE(isApplicationIdentifier(name)) << name;
}

TEST(RedirectSchemesTest, OnlyRegisteredProvidersHaveOne) {
  Configuration configuration;
  configuration.bundleIdentifier = "org.example.mail";
  EXPECT_THAT(redirectSchemes(configuration), IsEmpty());
  configuration.microsoft.applicationIdentifier = "01234567-89ab-cdef-0123-456789abcdef";
  EXPECT_THAT(redirectSchemes(configuration), ElementsAre("msauth.org.example.mail"));
  configuration.google.customURIScheme = "com.example.mail";
  EXPECT_THAT(redirectSchemes(configuration),
              ElementsAre("com.example.mail", "msauth.org.example.mail"));
}

TEST(RedirectSchemesTest, SchemesAreInLowerCase) {
  Configuration configuration;
  configuration.bundleIdentifier = "org.Example.Mail";
  configuration.microsoft.applicationIdentifier = "01234567-89ab-cdef-0123-456789abcdef";
  configuration.google.customURIScheme = "COM.example.Mail";
  EXPECT_THAT(redirectSchemes(configuration),
              ElementsAre("com.example.mail", "msauth.org.example.mail"));
}

}  // namespace
}  // namespace host
