#include "tests/e2e/desktop/BrowserSetup.h"

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <stdexcept>

namespace e2e {

namespace {

// Nothing listens on this port: the browsers' own traffic ends there, and reaches no one.
constexpr const char* kNowhere = "127.0.0.1:9";

// The texts, quoted for JSON and for a shell alike: what the tests put in needs no escapes.
std::string quotedList(const std::vector<std::string>& texts) {
  std::string list;
  for (const std::string& text : texts)
    list += (list.empty() ? "\"" : ",\"") + text + "\"";
  return "[" + list + "]";
}

// "AutoLaunchProtocolsFromOrigins", which both browsers know by the same name and form.
std::string launches(const BrowserPolicies& policies) {
  std::string list;
  for (const std::string& scheme : policies.schemes) {
    list += (list.empty() ? "" : ",") + (R"({"protocol":")" + scheme + R"(","allowed_origins":)") +
            quotedList(policies.origins) + "}";
  }
  return R"("AutoLaunchProtocolsFromOrigins":[)" + list + "]";
}

// A certificate in base64 of DER, which is what stands between the two lines of a PEM file.
std::string certificateText(const std::string& path) {
  std::ifstream file(path);
  const std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  return std::regex_replace(text, std::regex("-----[^-]+-----|\\s"), "");
}

std::string chromiumPolicies(const BrowserPolicies& policies) {
  return "{" + launches(policies) + R"(,"CACertificates":)" +
         quotedList({certificateText(policies.certificateAuthority)}) +
         R"(,"ProxySettings":{"ProxyMode":"fixed_servers","ProxyServer":")" + kNowhere + "\"}}";
}

std::string firefoxPolicies(const BrowserPolicies& policies) {
  std::string handlers;
  for (const std::string& scheme : policies.schemes) {
    handlers += (handlers.empty() ? "\"" : ",\"") + scheme +
                R"(":{"action":"useSystemDefault","ask":false})";
  }
  return R"({"policies":{)" + launches(policies) + R"(,"Certificates":{"Install":)" +
         quotedList({policies.certificateAuthority}) + R"(},"Handlers":{"schemes":{)" + handlers +
         R"(}},"Proxy":{"Mode":"manual","HTTPProxy":")" + kNowhere +
         R"(","UseHTTPProxyForAllProtocols":true,"Passthrough":"localhost"},)" +
         R"("DisableTelemetry":true,"DontCheckDefaultBrowser":true,"OverrideFirstRunPage":""}})";
}

// How a browser is run, and where it looks for policies.
struct Browser {
  std::string command;
  std::string policyFolder;
  std::string policyFile;  // below the folder
  std::string policies;
};

Browser browserNamed(const std::string& name, const BrowserPolicies& policies,
                     const std::string& profile) {
  if (name == "chromium") {
    const std::string sandbox = geteuid() == 0 ? " --no-sandbox" : "";  // it refuses to serve root
    return {"chromium --user-data-dir='" + profile +
                "' --remote-debugging-port=0 --password-store=basic --no-first-run --disable-gpu"
                " --disable-component-update" +
                sandbox,
            "/etc/chromium", "policies/managed/tests.json", chromiumPolicies(policies)};
  }
  if (name == "firefox-esr") {
    return {"firefox-esr --profile '" + profile + "' --remote-debugging-port=0",
            "/usr/share/firefox-esr/distribution", "policies.json", firefoxPolicies(policies)};
  }
  throw std::runtime_error("there is no such browser: " + name);
}

std::string writeProgram(const Browser& browser, const support::TemporaryFolder& folder) {
  const std::string program =
      folder.write("browser", "#!/bin/sh\nexec bwrap --die-with-parent --dev-bind / / --ro-bind '" +
                                  folder.file("policies") + "' " + browser.policyFolder + " " +
                                  browser.command + " \"$@\"\n");
  chmod(program.c_str(), S_IRWXU);
  return program;
}

void writeDesktopEntry(const std::string& program, const support::TemporaryFolder& folder) {
  std::filesystem::create_directories(folder.file("data/applications"));
  folder.write("data/applications/test-browser.desktop",
               "[Desktop Entry]\nType=Application\nName=The test's browser\nExec=" + program +
                   " %U\nMimeType=x-scheme-handler/http;x-scheme-handler/https;text/html;\n");
  folder.write("config/mimeapps.list",
               "[Default Applications]\nx-scheme-handler/http=test-browser.desktop\n"
               "x-scheme-handler/https=test-browser.desktop\ntext/html=test-browser.desktop\n");
}

}  // namespace

std::string makeDefaultBrowser(const std::string& name, const BrowserPolicies& policies,
                               const support::TemporaryFolder& folder) {
  const std::string profile = folder.file("profile");
  const Browser browser = browserNamed(name, policies, profile);
  std::filesystem::create_directories(profile);
  const std::string policyFile = folder.file("policies/" + browser.policyFile);
  std::filesystem::create_directories(std::filesystem::path(policyFile).parent_path());
  std::ofstream(policyFile) << browser.policies;
  const std::string program = writeProgram(browser, folder);
  writeDesktopEntry(program, folder);
  return program;
}

}  // namespace e2e
