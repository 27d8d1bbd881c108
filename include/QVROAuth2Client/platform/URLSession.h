// The HTTPS seam: requests, responses, and the tasks that carry them.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "QVROAuth2Client/platform/Error.h"
#include "QVROAuth2Client/platform/Export.h"
#include "QVROAuth2Client/platform/Object.h"
#include "QVROAuth2Client/platform/Text.h"
#include "QVROAuth2Client/platform/URL.h"

namespace qvr {
inline namespace v1 {

using HTTPHeaders = std::vector<std::pair<std::string, std::string>>;  // in wire order

struct QVR_EXPORT URLRequest {
  explicit URLRequest(URL requestURL) : url(std::move(requestURL)) {}

  // addValue:forHTTPHeaderField:
  // Appends a header; a field that is there already gets the value after a comma.
  void addValue(std::string_view value, std::string_view field);

  // The value of a field (compared without regard to case); absent when there is none.
  Text valueForHTTPHeaderField(std::string_view field) const;

  URL url;
  std::string HTTPMethod = "GET";
  HTTPHeaders headers;
  Data HTTPBody;
};

struct QVR_EXPORT HTTPURLResponse {
  std::int64_t statusCode = 0;
  HTTPHeaders headers;

  // localizedStringForStatusCode:
  // The reason text of a status, such as "not found" for 404; a text of its class for others.
  static std::string localizedStringForStatusCode(std::int64_t statusCode);
};

// What a data task reports, once. Data is absent exactly on a transport error, and then the error
// is there and the response is null; a reply without a body has empty, present data. The response
// is valid during the call only.
using DataTaskCompletionHandler =
    std::function<void(std::optional<Data> data, const HTTPURLResponse* response, ErrorPtr error)>;

// One request. Made suspended; a task that is never resumed never calls its handler. Its
// operations may be called from any thread and never call the handler themselves: it runs later, on
// the session's callback queue.
class QVR_EXPORT URLSessionDataTask : public Object {
 public:
  enum class State { kRunning, kSuspended, kCanceling, kCompleted };

  // Starts the request. On a task that was cancelled before, the handler is called with
  // NSURLErrorCancelled and nothing is sent. A second resume does nothing.
  virtual void resume() = 0;

  // Ends a running request: the handler is called once, with NSURLErrorCancelled. On a suspended
  // task it takes effect at resume; again, or after completion, it does nothing.
  virtual void cancel() = 0;

  virtual State state() const = 0;

  // How many bytes of the answer have arrived so far, its status line and headers included. Zero
  // only when it is certain that none has; absent when that cannot be told, as in a session that
  // does not count. Within the completion handler it is the final count.
  virtual std::optional<std::int64_t> countOfBytesReceived() const { return std::nullopt; }
};

// What a session owes: TLS with full verification; no redirect followed, no cookie, no cache, since
// the requests carry secrets; handlers run one at a time on the session's own callback queue, and
// are released with their one call. Transport errors are of NSURLErrorDomain.
class QVR_EXPORT URLSession : public Object {
 public:
  // dataTaskWithRequest:completionHandler:
  [[nodiscard]] virtual Ref<URLSessionDataTask> dataTask(
      URLRequest request, DataTaskCompletionHandler completionHandler) = 0;
};

}  // namespace v1
}  // namespace qvr
