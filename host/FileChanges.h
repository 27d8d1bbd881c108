// Changes of several files that belong together: all of them are made, or none.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/Failure.h"

namespace host {

// Undoes what was changed, in reverse order, unless it is told to keep it.
class FileChanges {
 public:
  FileChanges() = default;
  ~FileChanges();
  FileChanges(const FileChanges&) = delete;
  FileChanges& operator=(const FileChanges&) = delete;

  // Writes the file, making its folder when there is none. One that is there keeps its mode; one
  // that has this text already is left alone.
  std::optional<Failure> write(const std::string& path, std::string_view text);

  // Fails when the file has another text than `known` (absent: it is not there). To be asked right
  // before a change that is made of that text: another program's own change would be lost.
  std::optional<Failure> requireText(const std::string& path,
                                     const std::optional<std::string>& known) const;

  // Removes the file, if it is there.
  std::optional<Failure> remove(const std::string& path);

  void keep() { undoing_.clear(); }

  // True when a file was really changed.
  bool hasChanged() const { return hasChanged_; }

 private:
  // What to go back to: a file's text, or that a file or a folder is not there.
  struct Before {
    std::string path;
    std::optional<std::string> text;
    mode_t mode = 0;
  };

  std::optional<Failure> readBefore(const std::string& path, Before* before) const;
  void noteMissingFolders(const std::string& path);

  std::vector<Before> undoing_;
  bool hasChanged_ = false;
};

}  // namespace host
