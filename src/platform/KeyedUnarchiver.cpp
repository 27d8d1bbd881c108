#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "QVROAuth2Client/platform/Exception.h"
#include "src/platform/BinaryPropertyListReader.h"
#include "src/platform/KeyedArchive.h"
#include "src/platform/KeyedArchiveFormat.h"

namespace qvr {
namespace {

using namespace keyed_archive;
using Index = BinaryPropertyListReader::Index;

// Why an archive cannot be read. Never holds text of the archive, which may be a secret.
struct Failure {
  std::int64_t code = NSCoderReadCorruptError;
  std::string description;
};

ErrorPtr makeError(const Failure& failure) {
  if (failure.code == NSCoderValueNotFoundError) {
    return Error::errorWithDomain(NSCocoaErrorDomain, failure.code);
  }
  return Error::errorWithDomain(
      NSCocoaErrorDomain, failure.code,
      Error::UserInfo{{std::string(NSDebugDescriptionErrorKey), failure.description}});
}

std::string_view nameOf(CodedClass codedClass) {
  switch (codedClass) {
    case CodedClass::kString:
      return "NSString";
    case CodedClass::kNumber:
      return "NSNumber";
    case CodedClass::kSetOfStrings:
      return "NSSet of NSString";
    case CodedClass::kDate:
      break;
  }
  return kDateClass;
}

// Reads the entries of the root object. open() must have succeeded before the first one.
class KeyedUnarchiver final : public Coder {
 public:
  explicit KeyedUnarchiver(const BinaryPropertyListReader& list) : list_(list) {}

  // Checks everything that can be checked without knowing the entries, and finds the root object.
  bool open(std::string_view className);

  void encodeObject(CodedValue, std::string_view) override {
    throw InvalidArgumentException(
        "*** -[NSKeyedUnarchiver encodeObject:forKey:]: "
        "an unarchiver does not encode");
  }
  CodedValue decodeObject(CodedClass allowed, std::string_view key) override;

  // The first thing that went wrong, if any.
  const std::optional<Failure>& failure() const { return failure_; }

 private:
  bool checkHeader();
  bool checkReferences();
  bool findRoot(std::string_view className);

  bool isClassDescription(Index uid);
  bool isInstance(Index object, std::string_view className) const;

  std::optional<Index> findOfType(Index dictionary, std::string_view key,
                                  PropertyListType type) const;
  std::optional<Index> resolve(Index value) const;

  // Nothing when the object is not of the class.
  std::optional<CodedValue> decode(Index object, CodedClass allowed) const;
  std::optional<CodedValue> decodeSet(Index object) const;
  std::optional<CodedValue> decodeDate(Index object) const;

  bool fail(std::string description, std::int64_t code = NSCoderReadCorruptError);

  const BinaryPropertyListReader& list_;
  Index top_ = 0;
  Index objects_ = 0;
  Index root_ = 0;
  std::vector<bool> classDescriptions_;  // list objects that are known to be one
  std::optional<Failure> failure_;
};

bool KeyedUnarchiver::open(std::string_view className) {
  return checkHeader() && checkReferences() && findRoot(className);
}

bool KeyedUnarchiver::checkHeader() {
  const Index list = list_.topObject();
  if (list_.type(list) != PropertyListType::kDictionary) {
    return fail("The property list is not a keyed archive.");
  }
  const auto archiver = list_.find(list, kArchiverKey);
  if (!archiver || !list_.isString(*archiver) || !list_.stringEquals(*archiver, kArchiverName)) {
    return fail("The archive's $archiver is not NSKeyedArchiver.");
  }
  const auto version = findOfType(list, kVersionKey, PropertyListType::kInteger);
  if (!version || list_.number(*version) != BinaryPropertyListReader::Number(kVersion)) {
    return fail("The archive's $version is not 100000.");
  }
  const auto objects = findOfType(list, kObjectsKey, PropertyListType::kArray);
  const auto top = findOfType(list, kTopKey, PropertyListType::kDictionary);
  if (!objects || !top) return fail("The archive has no $objects array or no $top dictionary.");
  objects_ = *objects;
  top_ = *top;
  const bool hasNull = list_.count(objects_) > 0 && list_.isString(list_.element(objects_, 0)) &&
                       list_.stringEquals(list_.element(objects_, 0), kNull);
  return hasNull || fail("The archive's $objects do not begin with $null.");
}

// Every UID and every class of the list, whether or not the root object leads to it.
bool KeyedUnarchiver::checkReferences() {
  const auto count = static_cast<Index>(list_.objectCount());
  for (Index i = 0; i < count; ++i) {
    if (list_.type(i) == PropertyListType::kUID && list_.UID(i) >= list_.count(objects_)) {
      return fail("The archive has a reference to an object that does not exist.");
    }
  }
  classDescriptions_.resize(count);
  for (Index i = 0; i < count; ++i) {
    if (list_.type(i) != PropertyListType::kDictionary) continue;
    const auto objectClass = list_.find(i, kClassKey);
    if (objectClass && !isClassDescription(*objectClass)) {
      return fail("The archive has an object whose $class is not a class.");
    }
  }
  return true;
}

bool KeyedUnarchiver::findRoot(std::string_view className) {
  const auto uid = list_.find(top_, kRootKey);
  if (!uid) return fail({}, NSCoderValueNotFoundError);
  if (list_.type(*uid) != PropertyListType::kUID)
    return fail("The archive's root is no reference.");
  const auto root = resolve(*uid);
  if (!root) return fail({}, NSCoderValueNotFoundError);
  root_ = *root;
  return isInstance(root_, className) ||
         fail("The root object is not of the allowed class " + std::string(className) + ".");
}

// Remembers the descriptions it has seen: a hostile archive may have as many objects of a class as
// it has keys in the class's description.
bool KeyedUnarchiver::isClassDescription(Index uid) {
  if (list_.type(uid) != PropertyListType::kUID) return false;
  const auto description = resolve(uid);
  if (!description || list_.type(*description) != PropertyListType::kDictionary) return false;
  if (classDescriptions_[*description]) return true;
  const auto name = list_.find(*description, kClassNameKey);
  if (!name || !list_.isString(*name)) return false;
  if (!findOfType(*description, kClassesKey, PropertyListType::kArray)) return false;
  classDescriptions_[*description] = true;
  return true;
}

// Whether the class or one of its ancestors has the name.
bool KeyedUnarchiver::isInstance(Index object, std::string_view className) const {
  if (list_.type(object) != PropertyListType::kDictionary) return false;
  const auto uid = list_.find(object, kClassKey);
  if (!uid) return false;
  const auto names = list_.find(*resolve(*uid), kClassesKey);
  for (std::size_t i = 0; i < list_.count(*names); ++i) {
    const Index name = list_.element(*names, i);
    if (list_.isString(name) && list_.stringEquals(name, className)) return true;
  }
  return false;
}

std::optional<Index> KeyedUnarchiver::findOfType(Index dictionary, std::string_view key,
                                                 PropertyListType type) const {
  const auto value = list_.find(dictionary, key);
  return value && list_.type(*value) == type ? value : std::nullopt;
}

// The object that a value stands for: the one that a UID refers to, or the value itself when it is
// inline. Nothing for the null value.
std::optional<Index> KeyedUnarchiver::resolve(Index value) const {
  if (list_.type(value) != PropertyListType::kUID) return value;
  const auto uid = static_cast<std::size_t>(list_.UID(value));
  if (uid == 0) return std::nullopt;
  return list_.element(objects_, uid);
}

CodedValue KeyedUnarchiver::decodeObject(CodedClass allowed, std::string_view key) {
  if (failure_) return {};
  const auto value = list_.find(root_, key);
  const auto object = value ? resolve(*value) : std::nullopt;
  if (!object) return {};
  if (auto decoded = decode(*object, allowed)) return std::move(*decoded);
  fail("The entry for key \"" + std::string(key) +
       "\" is not a sound object of the allowed class " + std::string(nameOf(allowed)) + ".");
  return {};
}

std::optional<CodedValue> KeyedUnarchiver::decode(Index object, CodedClass allowed) const {
  switch (allowed) {
    case CodedClass::kString:
      if (!list_.isString(object)) return std::nullopt;
      return list_.string(object);
    case CodedClass::kNumber:
      if (!list_.isNumber(object)) return std::nullopt;
      return std::visit([](auto number) { return CodedValue(number); }, list_.number(object));
    case CodedClass::kSetOfStrings:
      return decodeSet(object);
    case CodedClass::kDate:
      break;
  }
  return decodeDate(object);
}

// A member that is there more than once is built once: a hostile archive may name one long string
// very often.
std::optional<CodedValue> KeyedUnarchiver::decodeSet(Index object) const {
  if (!isInstance(object, kSetClass)) return std::nullopt;
  const auto members = findOfType(object, kSetMembersKey, PropertyListType::kArray);
  if (!members) return std::nullopt;
  TextSet set;
  std::vector<bool> seen(list_.objectCount());
  for (std::size_t i = 0; i < list_.count(*members); ++i) {
    const auto member = resolve(list_.element(*members, i));
    if (!member || !list_.isString(*member)) return std::nullopt;
    if (seen[*member]) continue;
    seen[*member] = true;
    set.insert(set.end(), list_.string(*member));
  }
  return set;
}

std::optional<CodedValue> KeyedUnarchiver::decodeDate(Index object) const {
  if (list_.type(object) == PropertyListType::kDate) return Date{list_.date(object)};
  if (!isInstance(object, kDateClass)) return std::nullopt;
  const auto value = list_.find(object, kDateTimeKey);
  const auto time = value ? resolve(*value) : std::nullopt;
  if (!time || !list_.isNumber(*time)) return std::nullopt;
  return Date{
      std::visit([](auto seconds) { return static_cast<double>(seconds); }, list_.number(*time))};
}

bool KeyedUnarchiver::fail(std::string description, std::int64_t code) {
  failure_ = Failure{code, std::move(description)};
  return false;
}

std::optional<Failure> unarchive(std::span<const std::uint8_t> archive, std::string_view className,
                                 const std::function<void(Coder&)>& decode) {
  std::string_view problem;
  const auto list = BinaryPropertyListReader::open(archive, &problem);
  if (!list) return Failure{NSCoderReadCorruptError, std::string(problem)};
  KeyedUnarchiver unarchiver(*list);
  if (unarchiver.open(className)) decode(unarchiver);
  return unarchiver.failure();
}

}  // namespace

bool unarchiveRootObject(std::span<const std::uint8_t> archive, std::string_view className,
                         const std::function<void(Coder&)>& decode, ErrorPtr* error) {
  const std::optional<Failure> failure = unarchive(archive, className, decode);
  if (failure && error != nullptr) *error = makeError(*failure);
  return !failure;
}

}  // namespace qvr
