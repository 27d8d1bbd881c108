#include "host/NarratedSession.h"

#include <chrono>
#include <memory>
#include <string>
#include <utility>

#include "host/HeaderField.h"
#include "host/NarratedText.h"
#include "host/Steps.h"

namespace host {
namespace {

using Clock = std::chrono::steady_clock;

// One request, told from its start to its answer. The task and the handler share it: the start
// happens before the answer.
struct Story {
  std::string name;     // "request 1"
  std::string request;  // what is told when it is sent
  std::atomic<Clock::rep> start = 0;
};

std::string_view textOf(const qvr::Data& data) {
  if (data.empty()) return "";
  return {reinterpret_cast<const char*>(data.data()), data.size()};
}

std::string narrated(const qvr::URLRequest& request) {
  std::string text = request.HTTPMethod + " " + narratedURL(request.url);
  if (!request.HTTPBody.empty()) text += " with " + narratedFields(textOf(request.HTTPBody));
  return text;
}

std::string timeTaken(const Story& story) {
  const Clock::duration passed(Clock::now().time_since_epoch().count() - story.start);
  return std::to_string(std::chrono::duration_cast<std::chrono::milliseconds>(passed).count()) +
         " ms";
}

std::string narrated(const qvr::Data& body, const qvr::HTTPURLResponse& response) {
  std::string text = "status " + std::to_string(response.statusCode);
  if (const auto retryAfter = headerField(response, "Retry-After"))
    text += ", Retry-After " + narratedValue(*retryAfter);
  return text + ", " + std::to_string(body.size()) + " bytes: " + narratedJSON(textOf(body));
}

void tellAnswer(const Story& story, const std::optional<qvr::Data>& data,
                const qvr::HTTPURLResponse* response, const qvr::ErrorPtr& error) {
  const std::string begin = story.name + ": after " + timeTaken(story) + " ";
  if (data && response != nullptr) {
    step(begin + narrated(*data, *response));
  } else if (error) {
    step(begin + "no answer: " + error->domain() + " " + std::to_string(error->code()));
  }
}

// The inner task, told of when it starts.
class Task final : public qvr::URLSessionDataTask {
 public:
  Task(qvr::Ref<qvr::URLSessionDataTask> task, std::shared_ptr<Story> story)
      : task_(std::move(task)), story_(std::move(story)) {}

  void resume() override {
    if (!isStarted_.exchange(true)) {
      story_->start = Clock::now().time_since_epoch().count();
      step(story_->name + ": " + story_->request);
    }
    task_->resume();
  }
  void cancel() override { task_->cancel(); }
  State state() const override { return task_->state(); }
  std::optional<std::int64_t> countOfBytesReceived() const override {
    return task_->countOfBytesReceived();
  }

 private:
  const qvr::Ref<qvr::URLSessionDataTask> task_;
  const std::shared_ptr<Story> story_;
  std::atomic<bool> isStarted_ = false;
};

}  // namespace

NarratedSession::NarratedSession(qvr::Ref<qvr::URLSession> session)
    : session_(std::move(session)) {}

qvr::Ref<qvr::URLSessionDataTask> NarratedSession::dataTask(
    qvr::URLRequest request, qvr::DataTaskCompletionHandler completionHandler) {
  const auto story = std::make_shared<Story>();
  story->name = "request " + std::to_string(++count_);
  story->request = narrated(request);
  auto task = session_->dataTask(
      std::move(request), [story, handler = std::move(completionHandler)](
                              std::optional<qvr::Data> data, const qvr::HTTPURLResponse* response,
                              qvr::ErrorPtr error) {
        tellAnswer(*story, data, response, error);
        handler(std::move(data), response, std::move(error));
      });
  return qvr::makeRef<Task>(std::move(task), story);
}

qvr::Ref<qvr::URLSession> narratedIfShown(qvr::Ref<qvr::URLSession> session) {
  if (!stepsAreShown()) return session;
  return qvr::makeRef<NarratedSession>(std::move(session));
}

}  // namespace host
