#include "src/ports/CurlSessionTransfer.h"

#include <utility>

#include "src/platform/URLErrors.h"
#include "src/ports/CurlSessionErrors.h"
#include "src/ports/CurlSessionRequest.h"

namespace qvr {
namespace {

// Far more than any token response. Headers, which nobody asked for either, may be as large.
constexpr std::size_t kMaximumBodySize = 1 << 20;
constexpr std::size_t kMaximumHeaderSize = 1 << 20;

// Without optional white space around it (RFC 9110 section 5.5) and without the line's end.
std::string trimmed(std::string_view text) {
  constexpr std::string_view kSpace = " \t\r\n";
  const std::size_t first = text.find_first_not_of(kSpace);
  if (first == std::string_view::npos) return {};
  return std::string(text.substr(first, text.find_last_not_of(kSpace) - first + 1));
}

}  // namespace

CurlSessionTransfer::CurlSessionTransfer(const CurlLibrary& curl, CurlSessionHandles& handles,
                                         const URLRequest& request, double idleTimeoutSeconds,
                                         Clock::time_point deadline,
                                         CurlSessionByteCount& byteCount)
    : curl_(curl),
      handles_(handles),
      request_(request),
      idleTimeoutSeconds_(idleTimeoutSeconds),
      byteCount_(byteCount),
      handle_(handles.take(setupResult_)),
      wholeDeadline_(deadline),
      idleDeadline_(deadlineAfter(idleTimeoutSeconds)) {
  if (handle_ != nullptr) setUp();
}

CurlSessionTransfer::~CurlSessionTransfer() {
  if (handle_ != nullptr) setNothingOfRequest();
  if (handle_ != nullptr && isHandleGood_) handles_.giveBack(handle_);
  if (handle_ != nullptr && !isHandleGood_) handles_.discard(handle_);
  curl_.slistFreeAll(headerList_);
}

// The first option that libcurl refuses ends the transfer before it starts.
template <class T>
void CurlSessionTransfer::set(CURLoption option, T value) {
  if (setupResult_ == CURLE_OK) setupResult_ = curl_.easySetopt(handle_, option, value);
}

template <class T>
T CurlSessionTransfer::info(CURLINFO key, T absent) const {
  T value = absent;
  return curl_.easyGetinfo(handle_, key, &value) == CURLE_OK ? value : absent;
}

void CurlSessionTransfer::setUp() {
  setTarget();
  setHeaders();
  setCallbacks();
}

// Options of an earlier request are undone by the first ones.
void CurlSessionTransfer::setTarget() {
  set(CURLOPT_HTTPGET, 1L);
  set(CURLOPT_CUSTOMREQUEST, request_.HTTPMethod.c_str());
  set(CURLOPT_URL, request_.url.absoluteString().c_str());
  // Sent from where it is: a copy would be one more to wipe.
  const Data& body = request_.HTTPBody;
  if (request_.HTTPMethod == "HEAD") {
    set(CURLOPT_NOBODY, 1L);
  } else if (request_.HTTPMethod == "POST" || !body.empty()) {
    set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
    set(CURLOPT_POSTFIELDS, body.empty() ? "" : reinterpret_cast<const char*>(body.data()));
  }
}

void CurlSessionTransfer::setHeaders() {
  for (const std::string& line : headerLines(request_)) {
    curl_slist* const list = curl_.slistAppend(headerList_, line.c_str());
    if (list == nullptr) setupResult_ = CURLE_OUT_OF_MEMORY;
    if (list != nullptr) headerList_ = list;
  }
  set(CURLOPT_HTTPHEADER, headerList_);
}

void CurlSessionTransfer::setCallbacks() {
  set(CURLOPT_ERRORBUFFER, detail_.data());
  set(CURLOPT_HEADERFUNCTION, &CurlSessionTransfer::onHeader);
  set(CURLOPT_HEADERDATA, this);
  set(CURLOPT_WRITEFUNCTION, &CurlSessionTransfer::onBody);
  set(CURLOPT_WRITEDATA, this);
  set(CURLOPT_XFERINFOFUNCTION, &CurlSessionTransfer::onProgress);
  set(CURLOPT_XFERINFODATA, this);
  set(CURLOPT_DEBUGFUNCTION, &CurlSessionTransfer::onTrace);
  set(CURLOPT_DEBUGDATA, this);
  set(CURLOPT_VERBOSE, 1L);  // traces to the function alone
}

// The handle outlives what it was given to point to.
void CurlSessionTransfer::setNothingOfRequest() {
  curl_.easySetopt(handle_, CURLOPT_VERBOSE, 0L);
  curl_.easySetopt(handle_, CURLOPT_ERRORBUFFER, static_cast<char*>(nullptr));
  curl_.easySetopt(handle_, CURLOPT_HTTPHEADER, static_cast<curl_slist*>(nullptr));
  curl_.easySetopt(handle_, CURLOPT_POSTFIELDS, static_cast<char*>(nullptr));
}

CurlSessionTransfer::Clock::time_point CurlSessionTransfer::deadlineAfter(double seconds) {
  constexpr double kForever = 1e8;  // some years; keeps the sum within range
  const std::chrono::duration<double> left(std::clamp(seconds, 0.0, kForever));
  return Clock::now() + std::chrono::duration_cast<Clock::duration>(left);
}

void CurlSessionTransfer::noteBytes() {
  hasProgressed_ = true;
  idleDeadline_ = deadlineAfter(idleTimeoutSeconds_);
}

std::size_t CurlSessionTransfer::onHeader(const char* bytes, std::size_t size, std::size_t count,
                                          void* self) {
  const std::string_view line(bytes, size * count);
  return static_cast<CurlSessionTransfer*>(self)->takeHeader(line) ? line.size() : 0;
}

std::size_t CurlSessionTransfer::onBody(const char* bytes, std::size_t size, std::size_t count,
                                        void* self) {
  const std::string_view part(bytes, size * count);
  return static_cast<CurlSessionTransfer*>(self)->takeBody(part) ? part.size() : 0;
}

int CurlSessionTransfer::onProgress(void* self, curl_off_t /*toReceive*/, curl_off_t received,
                                    curl_off_t /*toSend*/, curl_off_t sent) {
  static_cast<CurlSessionTransfer*>(self)->noteProgress(received, sent);
  return 0;
}

int CurlSessionTransfer::onTrace(CURL* /*handle*/, curl_infotype kind, char* bytes,
                                 std::size_t size, void* self) {
  static_cast<CurlSessionTransfer*>(self)->byteCount_.noteTrace(kind, {bytes, size});
  return 0;
}

// A status line begins a response anew, so that only the final one's headers are kept; lines after
// the body are trailers, which are not headers.
bool CurlSessionTransfer::takeHeader(std::string_view line) {
  noteBytes();
  headerBytes_ += line.size();
  noteReceived(progress_.received);
  isTooLarge_ = headerBytes_ > kMaximumHeaderSize;
  if (isTooLarge_) return false;
  if (!body_.empty()) return true;
  const std::size_t colon = line.find(':');
  hasWholeHead_ = line == "\r\n" || line == "\n";
  if (line.substr(0, 5) == "HTTP/") {
    response_.headers.clear();
  } else if (colon != std::string_view::npos) {
    response_.headers.emplace_back(trimmed(line.substr(0, colon)), trimmed(line.substr(colon + 1)));
  }
  return true;
}

bool CurlSessionTransfer::takeBody(std::string_view bytes) {
  noteBytes();
  if (body_.empty()) reserveBody();
  isTooLarge_ = bytes.size() > kMaximumBodySize - body_.size();
  if (!isTooLarge_) body_.insert(body_.end(), bytes.begin(), bytes.end());
  return !isTooLarge_;
}

// A body that grows is copied again and again. What the server announces is not trusted further.
void CurlSessionTransfer::reserveBody() {
  const auto announced = info<curl_off_t>(CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, 0);
  if (announced > 0 && announced <= static_cast<curl_off_t>(kMaximumBodySize)) {
    body_.reserve(static_cast<std::size_t>(announced));
  }
}

// The handshake's bytes are not counted by libcurl, but its steps are timed.
void CurlSessionTransfer::noteProgress(curl_off_t received, curl_off_t sent) {
  const Progress progress{received, sent, info<curl_off_t>(CURLINFO_CONNECT_TIME_T, 0),
                          info<curl_off_t>(CURLINFO_APPCONNECT_TIME_T, 0)};
  if (progress == progress_) return;
  progress_ = progress;
  noteBytes();
  noteReceived(received);
}

// The header lines are counted as they come, since libcurl's own count has a proxy's among them.
void CurlSessionTransfer::noteReceived(curl_off_t bodyBytes) {
  byteCount_.noteReceived(static_cast<std::int64_t>(headerBytes_) + bodyBytes);
}

bool CurlSessionTransfer::takeProgress() {
  byteCount_.publish();
  return std::exchange(hasProgressed_, false);
}

// libcurl takes an answer that ends within its headers for one without a body.
CurlSessionOutcome CurlSessionTransfer::outcome(CURLcode result) {
  if (result == CURLE_OK && !hasWholeHead_) result = CURLE_PARTIAL_FILE;
  if (handle_ != nullptr) noteReceived(info<curl_off_t>(CURLINFO_SIZE_DOWNLOAD_T, 0));
  byteCount_.publish();
  isHandleGood_ = result == CURLE_OK;
  if (result == CURLE_OK) {
    response_.statusCode = info<long>(CURLINFO_RESPONSE_CODE, 0);
    return {std::move(body_), std::move(response_), nullptr};
  }
  const std::int64_t code = errorCode(result);
  // libcurl's fixed sentence for the result says more than "unknown error", and holds no secret.
  const bool isLocal = code == NSURLErrorUnknown || result == CURLE_SSL_CACERT_BADFILE;
  const TextView debugDescription = isLocal ? TextView(curl_.easyStrerror(result)) : TextView();
  return {std::nullopt, {}, makeURLError(code, request_.url, debugDescription)};
}

std::int64_t CurlSessionTransfer::errorCode(CURLcode result) const {
  if (isTooLarge_) return NSURLErrorDataLengthExceedsMaximum;
  if (handle_ == nullptr) return NSURLErrorUnknown;
  return URLErrorCode({result, info<long>(CURLINFO_OS_ERRNO, 0),
                       info<long>(CURLINFO_SSL_VERIFYRESULT, 0), detail_.data()});
}

}  // namespace qvr
