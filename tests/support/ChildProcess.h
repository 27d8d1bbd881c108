// A child process: its arguments, what it reads and prints, and how it ends. Every wait has a
// deadline, and a child that is still there when the object goes is killed.
#pragma once

#include <sys/types.h>

#include <map>
#include <string>
#include <vector>

namespace support {

class ChildProcess {
 public:
  struct Options {
    std::vector<std::string> arguments;              // the program's path first
    std::map<std::string, std::string> environment;  // added to, or replacing, this process's own
  };

  explicit ChildProcess(const Options& options);
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  pid_t pid() const { return pid_; }

  void writeInput(const std::string& text);
  void closeInput();

  // Reads until standard output or error has the text; false when the deadline passes or both end
  // before.
  bool waitForOutput(const std::string& text, double seconds = 30);
  bool waitForError(const std::string& text, double seconds = 30);

  // Reads to the end and collects the exit status: that of the program, 128 plus the number of the
  // signal that ended it, or -1 when the deadline passed.
  int wait(double seconds = 60);

  void signal(int number);

  // What has been read so far.
  const std::string& output() const { return output_; }
  const std::string& error() const { return error_; }

 private:
  bool readSome(double deadline);
  bool waitFor(const std::string& stream, const std::string& text, double seconds);

  pid_t pid_ = -1;
  int input_ = -1;
  int outputPipe_ = -1;
  int errorPipe_ = -1;
  std::string output_;
  std::string error_;
};

// A folder for one test, removed with all it holds.
class TemporaryFolder {
 public:
  TemporaryFolder();
  ~TemporaryFolder();
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  const std::string& path() const { return path_; }
  std::string file(const std::string& name) const { return path_ + "/" + name; }

  // Writes a file in the folder, with mode 0600, and answers its path.
  std::string write(const std::string& name, const std::string& content) const;

 private:
  std::string path_;
};

}  // namespace support
