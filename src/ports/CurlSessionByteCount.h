// How much of an answer has arrived, as far as libcurl lets one know.
#pragma once

#include <curl/curl.h>

#include <atomic>
#include <cstdint>
#include <optional>
#include <string_view>

namespace qvr {

// libcurl hands on header lines and parts of the body. A status line of which only a part came is
// kept from its callbacks, and its result is that of an empty answer. So after the request has been
// sent, "nothing has arrived" is certain only when libcurl's trace, which shows the header of every
// TLS record that OpenSSL reads, showed none with application data; and over HTTP/1 only, since in
// HTTP/2 the frames of all requests, and the connection's own, come in the same records. Where the
// trace shows no records, as over plain HTTP or with another TLS library, it is not known.
//
// Thread rule: value() on any thread, the rest on the session's.
class CurlSessionByteCount {
 public:
  // What was published last. Absent when it is not known.
  std::optional<std::int64_t> value() const;

  // Takes what libcurl traces, secrets among it, and keeps none of it.
  void noteTrace(curl_infotype kind, std::string_view bytes);

  // All header lines and all of the body that libcurl has taken in so far.
  void noteReceived(std::int64_t bytes) { received_ = bytes; }

  // Lets others see the count, once libcurl has done what it can do now: within its work a record
  // is known before what it holds is.
  void publish();

 private:
  void noteRequest(std::string_view head);
  void noteIncomingRecord(std::string_view bytes);
  bool isSilenceCertain() const;

  std::int64_t received_ = 0;
  bool isSent_ = false;
  bool usesHTTP1_ = false;
  bool showsRecords_ = false;       // the trace showed our own
  bool hasHeard_ = false;           // a record with application data has begun
  bool isRecordUndecided_ = false;  // a record has begun that may hold application data

  std::atomic<std::int64_t> published_{0};
};

}  // namespace qvr
