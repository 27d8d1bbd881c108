// Matchers for errors: domain, code and the whole of userInfo, where absent is not empty.
#pragma once

#include <gmock/gmock.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "QVROAuth2Client/platform/Error.h"

namespace support {

using UserInfo = qvr::Error::UserInfo;

// The userInfo that holds one entry.
inline UserInfo entry(std::string_view key, qvr::Value value) {
  return {{std::string(key), std::move(value)}};
}

// The userInfo that holds a description and nothing else.
inline UserInfo described(std::string_view text) {
  return entry(qvr::NSLocalizedDescriptionKey, text);
}

MATCHER_P3(IsErrorWithUserInfo, domain, code, userInfo, "") {
  *result_listener << (arg ? arg->description() : "no error");
  return arg && arg->is(domain, code) && arg->userInfo() != nullptr && *arg->userInfo() == userInfo;
}

MATCHER_P2(IsErrorWithoutUserInfo, domain, code, "") {
  *result_listener << (arg ? arg->description() : "no error");
  return arg && arg->is(domain, code) && arg->userInfo() == nullptr;
}

}  // namespace support
