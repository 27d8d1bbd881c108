// Writes binary property lists: objects are made from the leaves up, then written from a top one.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory_resource>
#include <optional>
#include <span>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "QVROAuth2Client/platform/Text.h"
#include "src/platform/BinaryPropertyList.h"

namespace qvr {

// Equal strings are one object, and so are equal integers and equal reals. UIDs are never shared,
// even when they are equal: other writers keep them apart too.
class BinaryPropertyListWriter {
 public:
  using Object = std::uint32_t;  // names an object of this writer

  struct Entry {
    std::string_view key;
    Object value;
  };

  BinaryPropertyListWriter() { scalars_.reserve(kUsualLength); }
  BinaryPropertyListWriter(const BinaryPropertyListWriter&) = delete;  // shared_ points into it
  BinaryPropertyListWriter& operator=(const BinaryPropertyListWriter&) = delete;

  Object string(std::string_view text);
  Object integer(std::int64_t number);
  Object real(double number);
  Object UID(std::uint32_t uid);
  Object array(std::span<const Object> elements);
  Object dictionary(std::span<const Entry> entries);  // written in this order

  // The list with this top object; nothing when a string was not UTF-8. The objects are numbered
  // in the order of a walk that visits a container, then its keys, then its values. (It recurses as
  // deep as the list is nested.)
  std::optional<Data> data(Object top) const;

 private:
  // A scalar is a range of scalars_, where it stands encoded; a container is a range of
  // references_. A dictionary's range holds its keys and then its values.
  struct Node {
    PropertyListType type;
    std::size_t start;
    std::size_t length;
  };

  // Where the objects come to stand in the file.
  struct Numbering {
    std::vector<Object> order;
    std::vector<std::uint32_t> numbers;  // by object
  };

  // Scalars are equal when their encoded forms, which begin with the type and the length, are.
  // Their beginning is enough for the hash: a list has few long strings, and tokens differ early.
  struct ScalarHash {
    static constexpr std::size_t kHashedLength = 512;
    const BinaryPropertyListWriter* writer;
    std::size_t operator()(Object scalar) const {
      return std::hash<std::string_view>()(writer->encoded(scalar).substr(0, kHashedLength));
    }
  };
  struct ScalarEqual {
    const BinaryPropertyListWriter* writer;
    bool operator()(Object a, Object b) const { return writer->encoded(a) == writer->encoded(b); }
  };

  void appendUTF16(std::string_view text);
  Object add(PropertyListType type, std::size_t start, std::size_t length);
  Object addScalar(PropertyListType type, std::size_t start);
  Object addSharedScalar(PropertyListType type, std::size_t start);
  std::string_view encoded(Object scalar) const;

  void number(Object object, Numbering* numbering) const;
  std::size_t sizeEstimate(std::size_t referenceWidth) const;
  void appendObject(Data& bytes, const Node& node, const Numbering& numbering) const;

  // Room for a token's record, so that writing one takes few allocations: for the texts and
  // numbers, and for the many small parts that lead to them. What finds none there comes from the
  // heap: the default resource is the host's, and need not take calls from our threads.
  static constexpr std::size_t kUsualLength = 8192;
  std::array<std::byte, 6144> buffer_;
  std::pmr::monotonic_buffer_resource memory_{buffer_.data(), buffer_.size(),
                                              std::pmr::new_delete_resource()};

  Data scalars_;
  std::pmr::vector<Object> references_{&memory_};
  std::pmr::vector<Node> nodes_{&memory_};
  std::pmr::unordered_set<Object, ScalarHash, ScalarEqual> shared_{64, ScalarHash{this},
                                                                   ScalarEqual{this}, &memory_};
  bool isUTF8_ = true;
};

}  // namespace qvr
