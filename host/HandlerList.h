// The text of a mimeapps.list, in which a user's choices of applications stand:
//
//   [Default Applications]
//   x-scheme-handler/mailto=first.desktop;second.desktop;
//
// It is edited in place: what is not about the entry that is added or removed stays as it is, byte
// for byte, and removing gives back what was there before adding.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace host {

class HandlerList {
 public:
  explicit HandlerList(std::string_view text);

  std::string text() const;

  // The desktop entries that are to handle the type, the first choice first.
  std::vector<std::string> handlers(std::string_view type) const;

  // The types for which the entry is among the choices.
  std::vector<std::string> typesOf(std::string_view entry) const;

  // Makes the entry the first choice for the type, before those that are there.
  void prefer(std::string_view type, std::string_view entry);

  // Takes the entry out of the choices for the type.
  void remove(std::string_view type, std::string_view entry);

  // Whether there is a group of defaults at all; and its removal if it is empty.
  bool hasGroup() const;
  void removeEmptyGroup();

 private:
  // A line of the group: "type=value".
  struct Default {
    std::size_t line;
    std::string_view type;
    std::size_t valueStart;
  };

  std::vector<Default> defaults() const;
  std::size_t placeForDefault();

  // What stands between line feeds: a text that ends in one has an empty last line.
  std::vector<std::string> lines_;
};

}  // namespace host
