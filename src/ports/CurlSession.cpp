#include "src/ports/CurlSession.h"

#include <utility>

namespace qvr {
namespace {

class CurlSession final : public URLSession {
 public:
  CurlSession(const URLSessionOptions& options, CurlLoader loader)
      : core_(makeRef<CurlSessionCore>(options, loader)) {}

  Ref<URLSessionDataTask> dataTask(URLRequest request,
                                   DataTaskCompletionHandler completionHandler) override {
    return makeRef<CurlSessionTask>(core_, std::move(request), std::move(completionHandler));
  }

 private:
  ~CurlSession() override = default;

  const Ref<CurlSessionCore> core_;
};

}  // namespace

Ref<URLSession> makeCurlSession(const URLSessionOptions& options, CurlLoader loader) {
  return makeRef<CurlSession>(options, loader);
}

inline namespace v1 {

Ref<URLSession> makeURLSession(const URLSessionOptions& options) {
  return makeCurlSession(options, CurlLibrary::shared);
}

}  // namespace v1
}  // namespace qvr
