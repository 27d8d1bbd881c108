// A sign-in that takes its redirect over the session bus.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <future>

#include "QVROAuth2Client/platform/Desktop.h"
#include "host/Paths.h"
#include "tests/host/BusDesktop.h"
#include "tests/host/ScopedVariable.h"
#include "tests/host/SignInFixture.h"
#include "tests/host/WaitingSignIn.h"

namespace host {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr const char* kName = "org.qvroauth2.command.test";

class BusSignInTest : public SignInTest {
 protected:
  BusSignInTest() {
    environment.busName = kName;
    answerWithAToken();
  }

  // Makes the browser open these URLs, on a thread of its own as the desktop would, and collects
  // the answers.
  void openInTheBrowser(std::function<std::vector<std::string>()> urls) {
    browser->onOpen = [this, urls = std::move(urls)](const qvr::URL&) {
      opener = std::async(std::launch::async, [this, all = urls()] {
        for (const std::string& url : all)
          answers.push_back(desktop.open(kName, url));
      });
    };
  }

  int runAndOpen() {
    const int status = run();
    opener.wait();
    EXPECT_THAT(error, Not(HasSubstr("the-code-of-this-sign-in")));
    return status;
  }

  void makeSocketImpossible() {
    folder.write("run", "no folder");
    environment.runtimeFolder = folder.file("run");
  }

  host_test::BusDesktop desktop;
  host_test::ScopedVariable busVariable{"DBUS_SESSION_BUS_ADDRESS", desktop.bus.address()};
  std::future<void> opener;
  std::vector<std::string> answers;
};

TEST_F(BusSignInTest, RedirectOverTheBusSignsIn) {
  openInTheBrowser([this] { return std::vector{accept()}; });
  EXPECT_EQ(runAndOpen(), kDone);
  EXPECT_THAT(answers, ElementsAre(""));
  EXPECT_TRUE(storedRecord());
  EXPECT_THAT(desktop.notifications(), IsEmpty());
}

TEST_F(BusSignInTest, BusAloneIsEnough) {
  makeSocketImpossible();
  openInTheBrowser([this] { return std::vector{accept()}; });
  EXPECT_EQ(runAndOpen(), kDone);
  EXPECT_THAT(error, Not(HasSubstr("has to be pasted")));
}

TEST_F(BusSignInTest, SocketAloneIsEnoughAndNothingIsSaid) {
  const host_test::ScopedVariable noBus("DBUS_SESSION_BUS_ADDRESS",
                                        "unix:path=" + folder.file("no-bus"));
  browser->onOpen = [this](const qvr::URL&) {
    opener = std::async(std::launch::async, [this, url = accept(), state = state()] {
      EXPECT_EQ(sendRedirect(environment.runtimeFolder, state, url), RedirectAnswer::kAccepted);
    });
  };
  EXPECT_EQ(runAndOpen(), kDone);
  EXPECT_THAT(error, Not(HasSubstr("bus")));
  EXPECT_THAT(error, Not(HasSubstr("has to be pasted")));
}

TEST_F(BusSignInTest, NeitherBusNorSocketIsSaid) {
  const host_test::ScopedVariable noBus("DBUS_SESSION_BUS_ADDRESS",
                                        "unix:path=" + folder.file("no-bus"));
  makeSocketImpossible();
  acceptInTheBrowser();
  EXPECT_EQ(run(), kDone);
  EXPECT_THAT(error, HasSubstr("has to be pasted"));
}

TEST_F(BusSignInTest, RedirectOfAnotherSignInIsPassedOnToIt) {
  const std::string foreign = "msauth.org.example.mail://auth?code=c&state=the-other-state";
  ASSERT_FALSE(makePrivateFolder(environment.runtimeFolder));
  host_test::WaitingSignIn other(environment.runtimeFolder, "the-other-state");
  openInTheBrowser([&] { return std::vector{foreign, accept()}; });
  EXPECT_EQ(runAndOpen(), kDone);
  EXPECT_THAT(answers, ElementsAre("", ""));
  EXPECT_EQ(other.received(), foreign);
  EXPECT_THAT(desktop.notifications(), IsEmpty());
}

TEST_F(BusSignInTest, RedirectThatNobodyWaitsForIsShownAndTheWaitGoesOn) {
  openInTheBrowser([this] {
    return std::vector<std::string>{"msauth.org.example.mail://auth?code=c&state=nobodys",
                                    accept()};
  });
  EXPECT_EQ(runAndOpen(), kDone);
  EXPECT_THAT(answers, ElementsAre(Not(""), ""));
  EXPECT_THAT(desktop.notifications(), ElementsAre(HasSubstr("No sign-in waits")));
  EXPECT_THAT(error, HasSubstr("No sign-in waits"));
}

TEST_F(BusSignInTest, UnusableAddressesAreShownAndTheWaitGoesOn) {
  openInTheBrowser([this] {
    return std::vector<std::string>{"word", "m.x://auth", "m.x://auth?state=" + state(), accept()};
  });
  EXPECT_EQ(runAndOpen(), kDone);
  EXPECT_THAT(answers, ElementsAre(Not(""), Not(""), Not(""), ""));
  EXPECT_EQ(desktop.notifications().size(), 3u);
}

TEST_F(BusSignInTest, LowerCasedSchemeIsTheSame) {
  options.account = google;
  openInTheBrowser([this] {
    std::string url = accept();
    url.replace(0, url.find(':'), "COM.Example.MAIL");
    return std::vector{url};
  });
  EXPECT_EQ(runAndOpen(), kDone);
  EXPECT_THAT(answers, ElementsAre(""));
}

TEST_F(BusSignInTest, LostBusLeavesTheSocket) {
  browser->onOpen = [this](const qvr::URL&) {
    opener = std::async(std::launch::async, [this, url = accept(), state = state()] {
      desktop.open(kName, "word");  // answered, so the wait has begun
      desktop.bus.crash();
      EXPECT_EQ(sendRedirect(environment.runtimeFolder, state, url), RedirectAnswer::kAccepted);
    });
  };
  EXPECT_EQ(runAndOpen(), kDone);
}

TEST_F(BusSignInTest, LostBusWithoutASocketLeavesPasting) {
  makeSocketImpossible();
  browser->onOpen = [this](const qvr::URL&) {
    opener = std::async(std::launch::async, [this, url = accept()] {
      desktop.open(kName, "word");
      desktop.bus.crash();
      paste(url);
    });
  };
  EXPECT_EQ(runAndOpen(), kDone);
}

TEST_F(BusSignInTest, NameIsTakenOverWhenItsOwnerEnds) {
  qvr::Ref<qvr::URLReceiver> owner = qvr::makeURLReceiver({.busName = kName});
  ASSERT_TRUE(owner);
  browser->onOpen = [&](const qvr::URL&) {
    owner = nullptr;
    opener = std::async(std::launch::async,
                        [this, url = accept()] { answers.push_back(desktop.open(kName, url)); });
  };
  EXPECT_EQ(runAndOpen(), kDone);
  EXPECT_THAT(answers, ElementsAre(""));
}

}  // namespace
}  // namespace host
