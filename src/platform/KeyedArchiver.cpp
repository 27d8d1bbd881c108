#include <algorithm>
#include <cmath>
#include <string>
#include <utility>
#include <vector>

#include "QVROAuth2Client/platform/Exception.h"
#include "src/platform/BinaryPropertyList.h"
#include "src/platform/BinaryPropertyListWriter.h"
#include "src/platform/KeyedArchive.h"
#include "src/platform/KeyedArchiveFormat.h"

namespace qvr {
namespace {

using namespace keyed_archive;
using ListObject = BinaryPropertyListWriter::Object;
using ListEntry = BinaryPropertyListWriter::Entry;

// More than a token's record has of entries, objects or classes.
constexpr std::size_t kUsualCount = 16;

struct Entry {
  std::string key;
  CodedValue value;
};

// Collects what the root object writes.
class KeyedArchiver final : public Coder {
 public:
  KeyedArchiver() { entries_.reserve(kUsualCount); }

  void encodeObject(CodedValue value, std::string_view key) override {
    entries_.push_back({std::string(key), std::move(value)});
  }

  CodedValue decodeObject(CodedClass, std::string_view) override {
    throw InvalidArgumentException(
        "*** -[NSKeyedArchiver decodeObjectOfClass:forKey:]: "
        "an archiver does not decode");
  }

  const std::vector<Entry>& entries() const { return entries_; }

 private:
  std::vector<Entry> entries_;
};

// The archive's table of objects. An object stands before those that it holds, and its class after
// them.
class ObjectTable {
 public:
  explicit ObjectTable(BinaryPropertyListWriter* writer) : writer_(writer) {
    objects_.reserve(kUsualCount);
    classes_.reserve(kUsualCount);
    append(writer_->string(kNull));
  }

  std::uint32_t addRoot(std::string_view className, const std::vector<Entry>& entries);
  ListObject array() const { return writer_->array(objects_); }

 private:
  // Each adds an object to the table and answers its UID; the null value is there already.
  std::uint32_t add(std::monostate) { return 0; }
  std::uint32_t add(const std::string& text) { return append(writer_->string(text)); }
  std::uint32_t add(std::int64_t number) { return append(writer_->integer(number)); }
  std::uint32_t add(double number) { return append(writer_->real(number)); }
  std::uint32_t add(const TextSet& set);
  std::uint32_t add(Date date);
  std::uint32_t addClass(std::string_view className);

  std::uint32_t append(ListObject object);
  std::uint32_t reserve() { return append({}); }
  void complete(std::uint32_t uid, std::vector<ListEntry> entries, std::string_view className);

  BinaryPropertyListWriter* writer_;
  std::vector<ListObject> objects_;
  std::vector<std::pair<std::string_view, std::uint32_t>> classes_;
};

std::uint32_t ObjectTable::append(ListObject object) {
  objects_.push_back(object);
  return static_cast<std::uint32_t>(objects_.size() - 1);
}

// Fills in an object whose place was reserved.
void ObjectTable::complete(std::uint32_t uid, std::vector<ListEntry> entries,
                           std::string_view className) {
  entries.push_back({kClassKey, writer_->UID(addClass(className))});
  objects_[uid] = writer_->dictionary(entries);
}

std::uint32_t ObjectTable::addRoot(std::string_view className, const std::vector<Entry>& entries) {
  const std::uint32_t root = reserve();
  std::vector<ListEntry> listEntries;
  listEntries.reserve(entries.size() + 1);
  for (const Entry& entry : entries) {
    const auto uid = std::visit([this](const auto& value) { return add(value); }, entry.value);
    listEntries.push_back({entry.key, writer_->UID(uid)});
  }
  complete(root, std::move(listEntries), className);
  return root;
}

std::uint32_t ObjectTable::add(const TextSet& set) {
  const std::uint32_t uid = reserve();
  std::vector<ListObject> members;
  members.reserve(set.size());
  for (const std::string& member : set)
    members.push_back(writer_->UID(add(member)));
  complete(uid, {{kSetMembersKey, writer_->array(members)}}, kSetClass);
  return uid;
}

std::uint32_t ObjectTable::add(Date date) {
  const std::uint32_t uid = reserve();
  complete(uid, {{kDateTimeKey, writer_->real(date.timeIntervalSinceReferenceDate)}}, kDateClass);
  return uid;
}

// A class is described once, however many objects are of it.
std::uint32_t ObjectTable::addClass(std::string_view className) {
  for (const auto& [name, uid] : classes_) {
    if (name == className) return uid;
  }
  const ListObject names[] = {writer_->string(className), writer_->string(kRootClass)};
  const ListEntry description[] = {{kClassesKey, writer_->array(names)},
                                   {kClassNameKey, writer_->string(className)}};
  const std::uint32_t uid = append(writer_->dictionary(description));
  classes_.push_back({className, uid});
  return uid;
}

// Numbers and dates that are not finite would compare with nothing once read back.
bool isFinite(const Entry& entry) {
  if (const auto* number = std::get_if<double>(&entry.value)) return std::isfinite(*number);
  if (const auto* date = std::get_if<Date>(&entry.value)) {
    return std::isfinite(date->timeIntervalSinceReferenceDate);
  }
  return true;
}

std::optional<Data> archiveData(std::string_view className, const std::vector<Entry>& entries) {
  if (!std::all_of(entries.begin(), entries.end(), isFinite)) return std::nullopt;
  BinaryPropertyListWriter writer;
  ObjectTable table(&writer);
  const ListEntry root[] = {{kRootKey, writer.UID(table.addRoot(className, entries))}};
  const ListEntry archive[] = {{kVersionKey, writer.integer(kVersion)},
                               {kArchiverKey, writer.string(kArchiverName)},
                               {kTopKey, writer.dictionary(root)},
                               {kObjectsKey, table.array()}};
  return writer.data(writer.dictionary(archive));
}

}  // namespace

std::optional<Data> archiveRootObject(std::string_view className,
                                      const std::function<void(Coder&)>& encode, ErrorPtr* error) {
  KeyedArchiver archiver;
  encode(archiver);
  std::optional<Data> data = archiveData(className, archiver.entries());
  // What is too long to be read back is not written either.
  if (data && data->size() <= kMaximumPropertyListLength) return data;
  if (error != nullptr) {
    *error = Error::errorWithDomain(NSCocoaErrorDomain, NSCoderInvalidValueError);
  }
  return std::nullopt;
}

}  // namespace qvr
