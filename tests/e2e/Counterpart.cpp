#include "tests/e2e/Counterpart.h"

#include <fstream>
#include <iterator>
#include <stdexcept>

#include "QVROAuth2Client/platform/JSON.h"
#include "tests/e2e/Event.h"

namespace e2e {

namespace {

qvr::Value parsed(const qvr::Data& body) {
  std::optional<qvr::Value> value = qvr::JSONObjectWithData(body, nullptr);
  if (!value) throw std::runtime_error("the servers' control port answered no JSON");
  return *std::move(value);
}

qvr::Value readJSON(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return parsed(qvr::Data(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()));
}

const qvr::Value& member(const qvr::Value& value, const std::string& name) {
  const qvr::Value* found = value.find(name);
  if (found == nullptr) throw std::runtime_error("no member " + name);
  return *found;
}

}  // namespace

Counterpart::Counterpart(std::string folder) : folder_(std::move(folder)) {
  process_ = std::make_unique<support::ChildProcess>(
      support::ChildProcess::Options{{QVR_NODE, QVR_E2E_FOLDER "/provider/main.mjs", "--dir",
                                      folder_, "--until-stdin-closes", "--max-seconds", "600"},
                                     {{"NODE_NO_WARNINGS", "1"}}});
  if (!process_->waitForOutput("provider: ready")) {
    throw std::runtime_error("the authorization servers did not start: " + process_->error());
  }
  ready_ = readJSON(folder_ + "/ready.json");
}

std::string Counterpart::ready(const std::string& name) const {
  return member(ready_, name).text().value();
}

std::string Counterpart::ready(const std::string& provider, const std::string& name) const {
  return member(member(ready_, provider), name).text().value();
}

qvr::Value Counterpart::send(const std::string& path, const std::string* json) {
  qvr::URLRequest request(qvr::URL::URLWithString(ready("control") + path).value());
  if (json != nullptr) {
    request.HTTPMethod = "POST";
    request.addValue("application/json", "Content-Type");
    request.HTTPBody.assign(json->begin(), json->end());
  }
  std::promise<qvr::Data> promise;
  std::future<qvr::Data> future = promise.get_future();
  const auto task =
      control_->dataTask(std::move(request), [&promise](std::optional<qvr::Data> data,
                                                        const qvr::HTTPURLResponse* response,
                                                        const qvr::ErrorPtr& error) {
        if (!data || response->statusCode != 200) {
          promise.set_exception(std::make_exception_ptr(
              std::runtime_error(error ? error->description() : "the control port refused")));
          return;
        }
        promise.set_value(*std::move(data));
      });
  task->resume();
  return parsed(await(std::move(future)));
}

qvr::Value Counterpart::post(const std::string& path, const std::string& json) {
  return send(path, &json);
}

std::int64_t Counterpart::count(const std::string& provider, const std::string& kind) {
  const qvr::Value counts = send("/counts", nullptr);
  return static_cast<std::int64_t>(member(member(counts, provider), kind).numberValue().value());
}

void Counterpart::fault(const std::string& provider, const std::string& endpoint,
                        const std::string& kind, const std::string& furtherMembers) {
  post("/faults", R"({"provider":")" + provider + R"(","endpoint":")" + endpoint + R"(","kind":")" +
                      kind + "\"" + furtherMembers + "}");
}

void Counterpart::hold(const std::string& provider, Moment moment, const std::string& endpoint) {
  const bool isAfter = moment == Moment::kAfterTheAnswer;
  fault(provider, endpoint, "hold", isAfter ? R"(,"after":true)" : "");
}

void Counterpart::waitUntilHeld(const std::string& provider, int count) {
  post("/held", R"({"provider":")" + provider + R"(","count":)" + std::to_string(count) + "}");
}

void Counterpart::release(const std::string& provider) {
  post("/release", R"({"provider":")" + provider + R"("})");
}

void Counterpart::shutDown() {
  post("/shutdown", "{}");
  if (process_->wait() != 0) throw std::runtime_error("the authorization servers did not end well");
}

void Counterpart::setAccessTokenSeconds(const std::string& provider, int seconds) {
  post("/settings", R"({"provider":")" + provider + R"(","accessTokenSeconds":)" +
                        std::to_string(seconds) + "}");
}

void Counterpart::useCertificate(const std::string& provider, const std::string& name) {
  post("/settings", R"({"provider":")" + provider + R"(","certificate":")" + name + R"("})");
}

bool Counterpart::isActive(const std::string& provider, const std::string& token) {
  const qvr::Value answer =
      post("/introspect", R"({"provider":")" + provider + R"(","token":")" + token + R"("})");
  return member(answer, "active") == qvr::Value(true);
}

std::unique_ptr<support::ChildProcess> startBrowser(const std::string& certificateAuthority,
                                                    const std::string& user, const std::string& url,
                                                    bool denies) {
  support::ChildProcess::Options options{
      {QVR_NODE, QVR_E2E_FOLDER "/browser/browse.mjs", "--ca", certificateAuthority, "--user", user,
       "--password", "correct horse"},
      {}};
  if (denies) options.arguments.emplace_back("--deny");
  options.arguments.push_back(url);
  return std::make_unique<support::ChildProcess>(options);
}

}  // namespace e2e
