// Records that the tests of the archive form compare.
#pragma once

#include <tuple>

#include "tests/support/LibraryTest.h"

namespace support {

// All that a record holds: two records have equal values when these are equal.
inline auto fieldsOf(const QVROAuth2Token& token) {
  return std::make_tuple(token.accessToken(), token.tokenType(), token.expiresIn(),
                         token.refreshToken(), token.grantedScopes(), token.creationDate());
}

inline qvr::Ref<QVROAuth2Token> fullToken() {
  return QVROAuth2Token::initWithAccessToken(
      "at", "Bearer", 3600, "rt", qvr::TextSet{"mail", "openid"}, qvr::Date{700000000.5});
}

inline qvr::Ref<QVROAuth2Token> emptyToken() {
  return QVROAuth2Token::initWithAccessToken(nullptr, nullptr, std::nullopt, nullptr, std::nullopt,
                                             std::nullopt);
}

}  // namespace support
