// qvr-oauth2 keychain move: the tokens go to the other keychain, which is used from then on.
#include <string>
#include <utility>
#include <variant>

#include "QVROAuth2Client/QVROAuth2Keychain.h"
#include "QVROAuth2Client/QVROAuth2Provider.h"
#include "QVROAuth2Client/platform/Ports.h"
#include "host/Command.h"
#include "host/ConfigurationEdit.h"
#include "host/Console.h"
#include "host/KeychainChoice.h"
#include "host/KeychainMove.h"
#include "host/Keychains.h"
#include "host/Record.h"
#include "host/Setup.h"
#include "host/Steps.h"

namespace host {
namespace {

using State = qvr::SecretServiceState;

// Reads records by way of the library, which looks into the one keychain that it was told of: here
// that is one in memory, to which each record is brought.
class RecordReader {
 public:
  std::optional<Failure> install(const Configuration& configuration) {
    return installHost(
        configuration,
        {.urlSession = nullptr, .keychainItems = items_, .workspace = nullptr, .clock = nullptr});
  }

  std::optional<qvr::Date> creationDate(const qvr::Data& data) const {
    const Account account = {std::string(QVROAuth2ProviderGoogle), "record"};
    qvr::KeychainQuery item = {{std::string(qvr::kSecClass), qvr::kSecClassGenericPassword},
                               {std::string(qvr::kSecAttrService),
                                QVROAuth2Keychain::serviceNameForService(account.provider)},
                               {std::string(qvr::kSecAttrAccount), account.username}};
    items_->remove(item);
    item.emplace(qvr::kSecValueData, data);
    items_->add(item);
    qvr::ErrorPtr error;
    const auto record = readRecord(account, &error);
    if (!record) return std::nullopt;
    return record->creationDate().value_or(qvr::Date{});
  }

 private:
  const qvr::Ref<qvr::KeychainItems> items_ = qvr::makeInMemoryKeychain();
};

std::string_view otherThan(std::string_view kind) {
  return kind == kSecretService ? kEncryptedFile : kSecretService;
}

// Why a move from or to the keyring cannot begin. What is locked is asked about later.
std::optional<Failure> keyringProblem(const Configuration& configuration, std::string_view target) {
  const State state = examineKeyring();
  if (state.kind != State::Kind::kAbsent) return std::nullopt;
  if (target == kSecretService)
    return Failure{kTryAgainLater, "There is no desktop keyring to move the tokens to. " +
                                       state.reason + " Nothing was changed."};
  return Failure{kTryAgainLater,
                 "The tokens are in the desktop's keyring, which does not answer. " + state.reason +
                     " Log in to the desktop or start its keyring, and run the command again. To "
                     "do without what it holds, write kind = \"" +
                     std::string(kEncryptedFile) + "\" under [keychain] in " + configuration.path +
                     " and sign in again."};
}

// Whether an interrupted move may have left something in the keychain that is not in use.
bool mayHaveLeftovers(const Configuration& configuration, std::string_view kind) {
  if (kind == kEncryptedFile) return isFileKeychainInUse(configuration.keychain);
  return examineKeyring().kind == State::Kind::kReady;
}

int finish(const std::string& sentence) {
  return writeOut(sentence + "\n") ? kDone : report(cannotWriteOutput());
}

std::string amount(std::size_t count) {
  return count == 1 ? "1 account" : std::to_string(count) + " accounts";
}

std::optional<Failure> moveItems(const Configuration& configuration, KeychainMove& move,
                                 std::string_view target) {
  std::optional<Failure> failure = move.check();
  if (!failure) step("moving " + amount(move.count()));
  if (!failure) failure = move.copy();
  if (!failure && configuration.keychain.kind != target)
    failure = writeKeychainKind(configuration.path, target);
  if (failure) {
    failure->sentence = "The tokens were not moved. " + failure->sentence;
    return failure;
  }
  step("the other keychain is in use now; removing what was moved from the old one");
  for (const std::string& account : move.replaced())
    say("An older token of " + account + " was replaced.");
  failure = move.removeOld();
  if (failure) {
    failure->sentence = "The tokens are kept in " + std::string(keychainName(target)) +
                        " now, and not all could be removed from " +
                        std::string(keychainName(otherThan(target))) + ": run the command again. " +
                        failure->sentence;
  }
  return failure;
}

std::variant<KeychainMove::Keychain, Failure> open(const Configuration& configuration,
                                                   std::string_view kind) {
  auto items = makeKeychain(kind, configuration.keychain);
  if (auto* failure = std::get_if<Failure>(&items)) return *failure;
  return KeychainMove::Keychain{kind, std::get<qvr::Ref<qvr::KeychainItems>>(std::move(items))};
}

int moveTo(const Configuration& configuration, std::string_view target) {
  const bool isInUse = configuration.keychain.kind == target;
  const auto source = open(configuration, otherThan(target));
  if (const auto* failure = std::get_if<Failure>(&source)) return report(*failure);
  const auto destination = open(configuration, target);
  if (const auto* failure = std::get_if<Failure>(&destination)) return report(*failure);
  RecordReader reader;
  if (auto failure = reader.install(configuration)) return report(*failure);
  KeychainMove move(std::get<KeychainMove::Keychain>(source),
                    std::get<KeychainMove::Keychain>(destination), isInUse,
                    [&reader](const qvr::Data& data) { return reader.creationDate(data); });
  if (auto failure = moveItems(configuration, move, target)) return report(*failure);
  const std::string place(keychainName(target));
  if (isInUse && move.count() == 0) return finish("Tokens are kept in " + place + " already.");
  if (move.count() == 0) return finish("Tokens are kept in " + place + " now; there was none yet.");
  return finish("Moved " + amount(move.count()) + " to " + place + ".");
}

}  // namespace

int moveKeychain(const Configuration& given, const std::string& keychain) {
  const std::string_view target = keychainNamed(keychain).value();
  Configuration configuration = given;
  const auto lock =
      settleKeychain(configuration, examineKeyring, ConfigurationLock::Kind::kExclusive);
  if (const auto* failure = std::get_if<Failure>(&lock)) return report(*failure);
  const bool isInUse = configuration.keychain.kind == target;
  if (isInUse && !mayHaveLeftovers(configuration, otherThan(target)))
    return finish("Tokens are kept in " + std::string(keychainName(target)) + " already.");
  if (!isInUse) {
    if (auto failure = keyringProblem(configuration, target)) return report(*failure);
  }
  return moveTo(configuration, target);
}

}  // namespace host
