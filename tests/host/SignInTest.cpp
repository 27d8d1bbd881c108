#include <sys/stat.h>

#include <future>

#include "host/SignIn.h"
#include "tests/host/SignInFixture.h"

namespace host {

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

TEST_F(SignInTest, PastedRedirectSignsInAndStoresTheRecord) {
  answerWithAToken();
  acceptInTheBrowser();
  EXPECT_EQ(run(), kDone) << error;
  EXPECT_EQ(out, "Signed in user@example.org at Microsoft.\n");
  const auto record = storedRecord();
  ASSERT_TRUE(record);
  EXPECT_EQ(record->accessToken(), "the-access-token");
  EXPECT_EQ(record->tokenType(), "Bearer");
  EXPECT_EQ(record->refreshToken(), "the-refresh-token");
  EXPECT_EQ(record->expiresIn(), 3599);
  EXPECT_EQ(record->creationDate()->timeIntervalSinceReferenceDate, kNow);
}

TEST_F(SignInTest, CodeIsExchangedWithTheVerifierOfTheAttempt) {
  answerWithAToken();
  acceptInTheBrowser();
  ASSERT_EQ(run(), kDone);
  ASSERT_EQ(session->requests().size(), 1u);
  EXPECT_THAT(session->requests()[0],
              AllOf(HasSubstr("code=the-code-of-this-sign-in"), HasSubstr("code_verifier="),
                    HasSubstr("grant_type=authorization_code")));
}

TEST_F(SignInTest, RedirectThatArrivesBeforeTheBrowserCallReturnsIsTaken) {
  answerWithAToken();
  std::optional<RawConnection> early;
  browser->onOpen = [&](const qvr::URL&) {
    early.emplace(socketPath());
    ASSERT_TRUE(early->isConnected());
    ASSERT_TRUE(early->send(accept() + "\n"));
  };
  EXPECT_EQ(run(), kDone) << error;
  EXPECT_EQ(early->readToEnd(), "accepted\n");
  EXPECT_TRUE(storedRecord());
}

TEST_F(SignInTest, RedirectFromAnotherThreadSignsInAtGoogle) {
  answerWithAToken();
  options.account = google;
  std::future<RedirectAnswer> answer;
  browser->onOpen = [&](const qvr::URL&) {
    answer = std::async(std::launch::async, [this, redirect = accept(), theState = state()] {
      return sendRedirect(environment.runtimeFolder, theState, redirect);
    });
  };
  EXPECT_EQ(run(), kDone) << error;
  EXPECT_EQ(answer.get(), RedirectAnswer::kAccepted);
}

TEST_F(SignInTest, SocketIsGoneAfterTheSignIn) {
  answerWithAToken();
  acceptInTheBrowser();
  ASSERT_EQ(run(), kDone);
  EXPECT_EQ(sendRedirect(environment.runtimeFolder, state(), accept()),
            RedirectAnswer::kNobodyWaiting);
}

TEST_F(SignInTest, AddressAsksForMailScopesWithTheHintsOfTheOptions) {
  answerWithAToken();
  options.prompt = "select_account";
  options.domainHint = "example.org";
  acceptInTheBrowser();
  ASSERT_EQ(run(), kDone);
  const std::string address = browser->opened.back().absoluteString();
  EXPECT_THAT(address,
              AllOf(HasSubstr("IMAP.AccessAsUser.All"), HasSubstr("offline_access"),
                    HasSubstr("login_hint=user%40example.org"), HasSubstr("prompt=select_account"),
                    HasSubstr("domain_hint=example.org")));
  EXPECT_THAT(error, HasSubstr(address));
}

TEST_F(SignInTest, ScopeOfTheOptionsReplacesTheDefault) {
  answerWithAToken();
  options.account = google;
  options.scope = "one two";
  acceptInTheBrowser();
  ASSERT_EQ(run(), kDone);
  EXPECT_THAT(browser->opened.back().absoluteString(), HasSubstr("scope=one%20two"));
  EXPECT_EQ(storedRecord()->grantedScopes(), (qvr::TextSet{"one", "two"}));
}

TEST_F(SignInTest, NoBrowserOnlyPrintsTheAddress) {
  options.openBrowser = false;
  options.timeoutSeconds = 0;
  EXPECT_EQ(run(), kFailed);
  EXPECT_TRUE(browser->opened.empty());
  EXPECT_THAT(error, HasSubstr("https://login.microsoft.test/common/oauth2/v2.0/authorize?"));
}

TEST_F(SignInTest, BrowserThatDoesNotOpenLeavesTheAddressToTheUser) {
  answerWithAToken();
  browser->opens = false;
  acceptInTheBrowser();
  EXPECT_EQ(run(), kDone);
  EXPECT_THAT(error, HasSubstr("No browser could be opened"));
}

TEST_F(SignInTest, EndOfStandardInputDoesNotEndTheWait) {
  answerWithAToken();
  input.writeEnd.close();
  std::optional<RawConnection> redirect;
  browser->onOpen = [&](const qvr::URL&) {
    redirect.emplace(socketPath());
    redirect->send(accept() + "\n");
  };
  EXPECT_EQ(run(), kDone) << error;
}

TEST_F(SignInTest, LastPastedLineNeedsNoNewline) {
  answerWithAToken();
  browser->onOpen = [this](const qvr::URL&) {
    input.write(accept());
    input.writeEnd.close();
  };
  EXPECT_EQ(run(), kDone) << error;
}

TEST_F(SignInTest, UnusableRuntimeFolderLeavesPasting) {
  answerWithAToken();
  ASSERT_EQ(mkdir(environment.runtimeFolder.c_str(), 0755), 0);
  ASSERT_EQ(chmod(environment.runtimeFolder.c_str(), 0755), 0);
  acceptInTheBrowser();
  EXPECT_EQ(run(), kDone);
  EXPECT_THAT(error, HasSubstr("has to be pasted"));
}

struct BadPaste {
  std::string line;
  std::string complaint;
};

TEST_F(SignInTest, PastedLineThatIsNotTheRedirectIsExplainedAndTheWaitGoesOn) {
  answerWithAToken();
  std::vector<BadPaste> pastes;
  browser->onOpen = [&](const qvr::URL& url) {
    pastes = {
        {"not an address", "That is no address."},
        {"garbage", "That is no address."},
        {"msauth.org.example.mail://auth?code=foreign-code", "does not say which sign-in"},
        {"msauth.org.example.mail://auth?code=foreign-code&state=of-another",
         "belongs to another sign-in"},
        {url.absoluteString(), "not the address at which the browser ends"},
        {"org.example.other://auth?" + accept().substr(accept().find('?') + 1),
         "not the address at which the browser ends"},
    };
    for (const BadPaste& each : pastes)
      paste(each.line);
    paste("  " + accept() + " \r");
  };
  EXPECT_EQ(run(), kDone) << error;
  ASSERT_FALSE(pastes.empty());
  for (const BadPaste& each : pastes)
    EXPECT_THAT(error, HasSubstr(each.complaint));
  EXPECT_THAT(error, Not(HasSubstr("foreign-code")));
}

TEST_F(SignInTest, ForeignRedirectOnTheSocketIsNotUsed) {
  answerWithAToken();
  std::vector<std::unique_ptr<RawConnection>> connections;  // served in this order
  browser->onOpen = [&](const qvr::URL& url) {
    for (const std::string& redirect :
         {std::string("msauth.org.example.mail://auth?code=c&state=another"), url.absoluteString(),
          accept()}) {
      connections.push_back(std::make_unique<RawConnection>(socketPath()));
      ASSERT_TRUE(connections.back()->send(redirect + "\n"));
    }
  };
  EXPECT_EQ(run(), kDone) << error;
  ASSERT_EQ(connections.size(), 3u);
  EXPECT_EQ(connections[0]->readToEnd(), "not this sign-in\n");
  EXPECT_EQ(connections[1]->readToEnd(), "refused\n");
  EXPECT_EQ(connections[2]->readToEnd(), "accepted\n");
}

TEST_F(SignInTest, RepeatedStateCountsByItsLastValue) {
  answerWithAToken();
  browser->onOpen = [this](const qvr::URL&) {
    paste(redirectWith("code=the-code-of-this-sign-in&state=first"));
  };
  EXPECT_EQ(run(), kDone) << error;
}

TEST_F(SignInTest, DenialFailsInWordsAndStoresNothing) {
  browser->onOpen = [this](const qvr::URL&) {
    paste(redirectWith("error=access_denied&error_description=The%20user%20said%20no"));
  };
  EXPECT_EQ(run(), kFailed);
  EXPECT_THAT(error, AllOf(HasSubstr("access_denied"), HasSubstr("The user said no")));
  EXPECT_EQ(keychain->itemCount(), 0u);
  EXPECT_TRUE(session->requests().empty());
}

TEST_F(SignInTest, OtherErrorsOfTheRedirectKeepTheirAdvice) {
  browser->onOpen = [this](const qvr::URL&) { paste(redirectWith("error=login_required")); };
  EXPECT_EQ(run(), kSignInNeeded);
}

TEST_F(SignInTest, SignalCancelsTheWait) {
  browser->onOpen = [this](const qvr::URL&) { interrupt(signals); };
  EXPECT_EQ(run(), kFailed);
  EXPECT_THAT(error, HasSubstr("cancelled"));
  EXPECT_EQ(sendRedirect(environment.runtimeFolder, state(), accept()),
            RedirectAnswer::kNobodyWaiting);
}

TEST_F(SignInTest, RedirectAfterTheCancellationIsIgnored) {
  browser->onOpen = [this](const qvr::URL&) { interrupt(signals); };
  ASSERT_EQ(run(), kFailed);
  QVROAuth2PublicClient::handleGetURLEvent({accept(), std::nullopt, std::nullopt});
  EXPECT_TRUE(session->requests().empty());
  EXPECT_EQ(keychain->itemCount(), 0u);
}

TEST_F(SignInTest, DeadlineFailsWithTheAddressToTryByHand) {
  options.timeoutSeconds = 0.1;
  EXPECT_EQ(run(), kFailed);
  EXPECT_THAT(error, AllOf(HasSubstr("within 0.1 s"), HasSubstr("--timeout")));
}

TEST_F(SignInTest, RedirectWithoutACodeFailsInWords) {
  browser->onOpen = [this](const qvr::URL&) { paste(redirectWith("x=y")); };
  EXPECT_EQ(run(), kFailed);
  EXPECT_THAT(error, HasSubstr("without a code"));
}

TEST_F(SignInTest, RedirectWithAnEmptyCodeFailsInWords) {
  browser->onOpen = [this](const qvr::URL&) { paste(redirectWith("code=")); };
  EXPECT_EQ(run(), kFailed);
  EXPECT_THAT(error, HasSubstr("without a code"));
}

TEST_F(SignInTest, CodeThatDoesNotDecodeIsNoCode) {
  browser->onOpen = [this](const qvr::URL&) { paste(redirectWith("code=%FF")); };
  EXPECT_EQ(run(), kFailed);
  EXPECT_THAT(error, HasSubstr("without a code"));
}

TEST_F(SignInTest, CodeWithASpaceIsNeverSent) {
  for (const char* const code : {"a%20b", "a%20", "%20"}) {
    browser->onOpen = [&](const qvr::URL&) { paste(redirectWith("code=" + std::string(code))); };
    EXPECT_EQ(run(), kFailed) << code;
    EXPECT_THAT(error, HasSubstr("has a space in it"));
  }
  EXPECT_TRUE(session->requests().empty());
}

TEST_F(SignInTest, NothingPrintedHoldsASecret) {
  answerWithAToken();
  acceptInTheBrowser();
  ASSERT_EQ(run(), kDone);
  const std::string body = session->requests().at(0);
  const std::size_t start = body.find("code_verifier=") + 14;
  const std::string verifier = body.substr(start, body.find('&', start) - start);
  for (const std::string& secret :
       {std::string("the-code-of-this-sign-in"), std::string("the-access-token"),
        std::string("the-refresh-token"), verifier}) {
    EXPECT_THAT(out + error, Not(HasSubstr(secret)));
  }
}

}  // namespace

}  // namespace host
