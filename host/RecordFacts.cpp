#include "host/RecordFacts.h"

#include <algorithm>
#include <cmath>
#include <iterator>

#include "host/DateText.h"

namespace host {
namespace {

// An absent creation date counts as the reference date, as for the library.
double expiry(const QVROAuth2Token& record) {
  const qvr::Date created = record.creationDate().value_or(qvr::Date{});
  return created.timeIntervalSinceReferenceDate + record.expiresIn().value_or(NAN);
}

}  // namespace

std::optional<qvr::Date> expiryDate(const QVROAuth2Token& record) {
  const qvr::Date date{expiry(record)};
  if (std::isnan(date.timeIntervalSinceReferenceDate)) return std::nullopt;
  return writableDate(date);
}

std::optional<std::int64_t> secondsUntilExpiry(const QVROAuth2Token& record, qvr::Date now) {
  const auto date = expiryDate(record);
  if (!date) return std::nullopt;
  return static_cast<std::int64_t>(std::floor(date->timeIntervalSinceReferenceDate -
                                              writableDate(now).timeIntervalSinceReferenceDate));
}

bool hasExpired(const QVROAuth2Token& record, qvr::Date now) {
  return expiry(record) <= now.timeIntervalSinceReferenceDate;
}

bool hasRefreshToken(const QVROAuth2Token& record) {
  return record.refreshToken() && !record.refreshToken()->empty();
}

// A scope that was granted as two spaces in a row, or as an empty text, has empty members.
std::vector<std::string> scopesOf(const QVROAuth2Token& record) {
  const qvr::TextSet scopes = record.grantedScopes().value_or(qvr::TextSet{});
  std::vector<std::string> names;
  std::copy_if(scopes.begin(), scopes.end(), std::back_inserter(names),
               [](const std::string& scope) { return !scope.empty(); });
  return names;
}

}  // namespace host
