#include "src/ports/CurlSessionByteCount.h"

namespace qvr {
namespace {

constexpr std::int64_t kUnknown = -1;
constexpr char kApplicationData = 23;  // a record's content type (RFC 8446 section 5.1)

// The five bytes before a record: its type, the version 3.x, and the length (RFC 8446 section 5.1).
bool isHeaderOfData(std::string_view bytes) {
  return bytes.size() == 5 && bytes[0] == kApplicationData && bytes[1] == 3;
}

}  // namespace

std::optional<std::int64_t> CurlSessionByteCount::value() const {
  const std::int64_t count = published_;
  return count == kUnknown ? std::nullopt : std::optional(count);
}

void CurlSessionByteCount::noteTrace(curl_infotype kind, std::string_view bytes) {
  if (kind == CURLINFO_HEADER_OUT) noteRequest(bytes);
  if (kind == CURLINFO_SSL_DATA_OUT) showsRecords_ |= isHeaderOfData(bytes);
  if (kind == CURLINFO_SSL_DATA_IN) noteIncomingRecord(bytes);
}

// The first part of a request, or the next one of a long head, which has no version in its first
// line. The request to a proxy for a tunnel counts too, and that through the tunnel replaces it.
void CurlSessionByteCount::noteRequest(std::string_view head) {
  isSent_ = true;
  const std::string_view line = head.substr(0, head.find("\r\n"));
  const std::size_t version = line.rfind(" HTTP/");
  if (version != std::string_view::npos) usesHTTP1_ = line.substr(version).starts_with(" HTTP/1.");
}

// In TLS 1.3 every encrypted record has the header of application data, and its true type is shown
// once it is decrypted, as one byte; in TLS 1.2 the header is true and no such byte follows.
void CurlSessionByteCount::noteIncomingRecord(std::string_view bytes) {
  if (isHeaderOfData(bytes)) {
    hasHeard_ |= isRecordUndecided_;
    isRecordUndecided_ = true;
  } else if (bytes.size() == 1) {
    hasHeard_ |= bytes[0] == kApplicationData;
    isRecordUndecided_ = false;
  }
}

bool CurlSessionByteCount::isSilenceCertain() const {
  if (!isSent_) return true;
  return usesHTTP1_ && showsRecords_ && !hasHeard_ && !isRecordUndecided_;
}

void CurlSessionByteCount::publish() {
  published_ = received_ > 0 || isSilenceCertain() ? received_ : kUnknown;
}

}  // namespace qvr
