// The exceptions that programming errors raise: an endpoint that yields no URL, a token without a
// refresh token, an unknown provider at refresh time, an absent argument. Run-time failures are
// Error values, never exceptions.
#pragma once

#include <exception>
#include <memory>
#include <string>
#include <string_view>

#include "QVROAuth2Client/platform/Export.h"
#include "QVROAuth2Client/platform/Text.h"

namespace qvr {
inline namespace v1 {

// Copies share one immutable content.
class QVR_EXPORT Exception : public std::exception {
 public:
  Exception(std::string_view name, TextView reason);
  ~Exception() override;

  // "NSInvalidArgumentException", "NSInternalInconsistencyException" or "NSRangeException".
  const std::string& name() const noexcept;

  // May be absent.
  const Text& reason() const noexcept;

  // "name: reason", what std::terminate prints.
  const char* what() const noexcept override;

 private:
  struct Content;
  std::shared_ptr<const Content> content_;
};

class QVR_EXPORT InvalidArgumentException final : public Exception {
 public:
  explicit InvalidArgumentException(TextView reason);
  ~InvalidArgumentException() override;
};

class QVR_EXPORT InternalInconsistencyException final : public Exception {
 public:
  explicit InternalInconsistencyException(TextView reason);
  ~InternalInconsistencyException() override;
};

class QVR_EXPORT RangeException final : public Exception {
 public:
  explicit RangeException(TextView reason);
  ~RangeException() override;
};

}  // namespace v1
}  // namespace qvr
