#include "src/manager/TokenArchive.h"

#include "src/platform/KeyedArchive.h"

namespace {

constexpr std::string_view kTokenClassName = "QVROAuth2Token";

}  // namespace

std::optional<qvr::Data> archivedToken(const QVROAuth2Token& token, qvr::ErrorPtr* error) {
  return qvr::archiveRootObject(
      kTokenClassName, [&token](qvr::Coder& coder) { token.encodeWithCoder(coder); }, error);
}

qvr::Ref<QVROAuth2Token> unarchivedToken(const qvr::Data& data, qvr::ErrorPtr* error) {
  qvr::Ref<QVROAuth2Token> token;
  const bool isToken = qvr::unarchiveRootObject(
      data, kTokenClassName,
      [&token](qvr::Coder& coder) { token = QVROAuth2Token::initWithCoder(coder); }, error);
  return isToken ? token : nullptr;
}
