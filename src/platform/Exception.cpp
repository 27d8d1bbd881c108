#include "QVROAuth2Client/platform/Exception.h"

namespace qvr {
inline namespace v1 {

struct Exception::Content {
  std::string name;
  Text reason;
  std::string what;
};

Exception::Exception(std::string_view name, TextView reason)
    : content_(std::make_shared<const Content>(
          Content{std::string(name), reason.text(),
                  std::string(name) + ": " + reason.text().value_or("(null)")})) {}

Exception::~Exception() = default;

const std::string& Exception::name() const noexcept {
  return content_->name;
}

const Text& Exception::reason() const noexcept {
  return content_->reason;
}

const char* Exception::what() const noexcept {
  return content_->what.c_str();
}

InvalidArgumentException::InvalidArgumentException(TextView reason)
    : Exception("NSInvalidArgumentException", reason) {}
InvalidArgumentException::~InvalidArgumentException() = default;

InternalInconsistencyException::InternalInconsistencyException(TextView reason)
    : Exception("NSInternalInconsistencyException", reason) {}
InternalInconsistencyException::~InternalInconsistencyException() = default;

RangeException::RangeException(TextView reason) : Exception("NSRangeException", reason) {}
RangeException::~RangeException() = default;

}  // namespace v1
}  // namespace qvr
