#include "QVROAuth2Client/QVROAuth2Token.h"

#include <cmath>

#include "src/platform/World.h"

namespace {

constexpr std::string_view kAccessTokenKey = "QVR.accessToken";
constexpr std::string_view kTokenTypeKey = "QVR.tokenType";
constexpr std::string_view kExpiresInKey = "QVR.expiresIn";
constexpr std::string_view kRefreshTokenKey = "QVR.refreshToken";
constexpr std::string_view kGrantedScopesKey = "QVR.grantedScopes";
constexpr std::string_view kCreationDateKey = "QVR.creationDate";

// A token is due from this many seconds before its expiry, so that it survives the request it is
// for.
constexpr double kRefreshMarginSeconds = 60.0;

template <class T>
qvr::CodedValue coded(const std::optional<T>& value) {
  return value ? qvr::CodedValue(*value) : qvr::CodedValue();
}

// A whole number of seconds is kept as an integer, as servers send it.
qvr::CodedValue codedNumber(const std::optional<double>& number) {
  constexpr double kExactIntegers = 9007199254740992.0;  // 2^53
  if (number && std::nearbyint(*number) == *number && std::abs(*number) <= kExactIntegers) {
    return static_cast<std::int64_t>(*number);
  }
  return coded(number);
}

template <class T>
std::optional<T> decoded(qvr::CodedValue value) {
  T* const content = std::get_if<T>(&value);
  return content != nullptr ? std::optional<T>(std::move(*content)) : std::nullopt;
}

std::optional<double> decodedNumber(const qvr::CodedValue& value) {
  if (const auto* integer = std::get_if<std::int64_t>(&value)) return static_cast<double>(*integer);
  return decoded<double>(value);
}

}  // namespace

QVROAuth2Token::QVROAuth2Token(qvr::Text accessToken, qvr::Text tokenType,
                               std::optional<double> expiresIn, qvr::Text refreshToken,
                               std::optional<qvr::TextSet> grantedScopes,
                               std::optional<qvr::Date> creationDate)
    : accessToken_(std::move(accessToken)),
      tokenType_(std::move(tokenType)),
      expiresIn_(expiresIn),
      refreshToken_(std::move(refreshToken)),
      grantedScopes_(std::move(grantedScopes)),
      creationDate_(creationDate) {}

QVROAuth2Token::~QVROAuth2Token() = default;

qvr::Ref<QVROAuth2Token> QVROAuth2Token::initWithAccessToken(
    qvr::TextView accessToken, qvr::TextView tokenType, std::optional<double> expiresIn,
    qvr::TextView refreshToken, std::optional<qvr::TextSet> grantedScopes,
    std::optional<qvr::Date> creationDate) {
  return qvr::Ref<QVROAuth2Token>::adopt(
      new QVROAuth2Token(accessToken.text(), tokenType.text(), expiresIn, refreshToken.text(),
                         std::move(grantedScopes), creationDate));
}

bool QVROAuth2Token::shouldRefreshToken() const {
  if (!refreshToken_ || !expiresIn_) return false;
  const double expiry =
      creationDate_.value_or(qvr::Date{}).timeIntervalSinceReferenceDate + *expiresIn_;
  const double now = qvr::World::current().now().timeIntervalSinceReferenceDate;
  return expiry <= now + kRefreshMarginSeconds;  // false when either sum is not a number
}

qvr::Ref<QVROAuth2Token> QVROAuth2Token::copyWithZone(void*) {
  return qvr::Ref<QVROAuth2Token>::retain(this);
}

void QVROAuth2Token::encodeWithCoder(qvr::Coder& coder) const {
  coder.encodeObject(coded(accessToken_), kAccessTokenKey);
  coder.encodeObject(coded(tokenType_), kTokenTypeKey);
  coder.encodeObject(codedNumber(expiresIn_), kExpiresInKey);
  coder.encodeObject(coded(refreshToken_), kRefreshTokenKey);
  coder.encodeObject(coded(grantedScopes_), kGrantedScopesKey);
  coder.encodeObject(coded(creationDate_), kCreationDateKey);
}

qvr::Ref<QVROAuth2Token> QVROAuth2Token::initWithCoder(qvr::Coder& coder) {
  using qvr::CodedClass;
  qvr::Text accessToken =
      decoded<std::string>(coder.decodeObject(CodedClass::kString, kAccessTokenKey));
  qvr::Text tokenType =
      decoded<std::string>(coder.decodeObject(CodedClass::kString, kTokenTypeKey));
  std::optional<double> expiresIn =
      decodedNumber(coder.decodeObject(CodedClass::kNumber, kExpiresInKey));
  qvr::Text refreshToken =
      decoded<std::string>(coder.decodeObject(CodedClass::kString, kRefreshTokenKey));
  std::optional<qvr::TextSet> grantedScopes =
      decoded<qvr::TextSet>(coder.decodeObject(CodedClass::kSetOfStrings, kGrantedScopesKey));
  std::optional<qvr::Date> creationDate =
      decoded<qvr::Date>(coder.decodeObject(CodedClass::kDate, kCreationDateKey));
  return qvr::Ref<QVROAuth2Token>::adopt(
      new QVROAuth2Token(std::move(accessToken), std::move(tokenType), expiresIn,
                         std::move(refreshToken), std::move(grantedScopes), creationDate));
}
