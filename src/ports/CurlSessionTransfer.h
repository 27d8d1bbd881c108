// One request on its way: a libcurl easy handle, what it has received, and when it is overdue.
#pragma once

#include <algorithm>
#include <array>
#include <chrono>
#include <string_view>

#include "src/ports/CurlLibrary.h"
#include "src/ports/CurlSessionByteCount.h"
#include "src/ports/CurlSessionHandles.h"
#include "src/ports/CurlSessionTask.h"

namespace qvr {

// Thread rule: one thread at a time. What the transfer is made with must outlive it.
class CurlSessionTransfer {
 public:
  using Clock = std::chrono::steady_clock;

  static Clock::time_point deadlineAfter(double seconds);

  // `deadline` is that of the whole request, which may have waited for its turn before.
  CurlSessionTransfer(const CurlLibrary& curl, CurlSessionHandles& handles,
                      const URLRequest& request, double idleTimeoutSeconds,
                      Clock::time_point deadline, CurlSessionByteCount& byteCount);
  ~CurlSessionTransfer();
  CurlSessionTransfer(const CurlSessionTransfer&) = delete;
  CurlSessionTransfer& operator=(const CurlSessionTransfer&) = delete;

  // Null when libcurl could not take the request; outcome(setupResult()) then says why.
  CURL* handle() const { return setupResult_ == CURLE_OK ? handle_ : nullptr; }
  CURLcode setupResult() const { return setupResult_; }

  // When the transfer is overdue. Moves on with every byte, up to the limit of the whole request.
  Clock::time_point deadline() const { return std::min(wholeDeadline_, idleDeadline_); }

  // True when anything was received or sent since the last call. Call it whenever libcurl has done
  // what it could: it publishes how much of the answer has arrived.
  bool takeProgress();

  // What the transfer came to, given libcurl's result. Call it once.
  CurlSessionOutcome outcome(CURLcode result);

 private:
  // Whatever moves when a connection is alive.
  struct Progress {
    curl_off_t received = 0;
    curl_off_t sent = 0;
    curl_off_t connectTime = 0;
    curl_off_t handshakeTime = 0;
    friend bool operator==(const Progress&, const Progress&) = default;
  };

  template <class T>
  void set(CURLoption option, T value);
  template <class T>
  T info(CURLINFO key, T absent) const;
  void setUp();
  void setTarget();
  void setHeaders();
  void setCallbacks();
  void setNothingOfRequest();

  static std::size_t onHeader(const char* bytes, std::size_t size, std::size_t count, void* self);
  static std::size_t onBody(const char* bytes, std::size_t size, std::size_t count, void* self);
  static int onProgress(void* self, curl_off_t toReceive, curl_off_t received, curl_off_t toSend,
                        curl_off_t sent);
  static int onTrace(CURL* handle, curl_infotype kind, char* bytes, std::size_t size, void* self);
  bool takeHeader(std::string_view line);
  bool takeBody(std::string_view bytes);
  void reserveBody();
  void noteProgress(curl_off_t received, curl_off_t sent);
  void noteBytes();
  void noteReceived(curl_off_t bodyBytes);
  std::int64_t errorCode(CURLcode result) const;

  const CurlLibrary& curl_;
  CurlSessionHandles& handles_;
  const URLRequest& request_;
  const double idleTimeoutSeconds_;
  CurlSessionByteCount& byteCount_;
  CURLcode setupResult_ = CURLE_OK;
  CURL* const handle_;
  bool isHandleGood_ = false;  // for another request
  curl_slist* headerList_ = nullptr;
  std::array<char, CURL_ERROR_SIZE> detail_{};

  const Clock::time_point wholeDeadline_;
  Clock::time_point idleDeadline_;
  Progress progress_;
  bool hasProgressed_ = false;

  HTTPURLResponse response_;
  Data body_;
  std::size_t headerBytes_ = 0;
  bool isTooLarge_ = false;
  bool hasWholeHead_ = false;  // the empty line after the last headers has come
};

}  // namespace qvr
