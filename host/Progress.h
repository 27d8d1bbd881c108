// The line on a terminal that shows that a command still waits, drawn over itself.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace host {

// "Waiting for the browser, 4:32 left. Ctrl-C cancels."
std::string waitingText(double secondsLeft);

// What to write to draw `text` over a line on which `shown` characters were drawn: never so long
// that the terminal, `columns` wide, would wrap it.
std::string drawnOver(std::size_t shown, std::string_view text, std::size_t columns);

class ProgressLine {
 public:
  // Draws on the descriptor if that is a terminal to draw on, and does nothing if it is not.
  explicit ProgressLine(int descriptor);
  ~ProgressLine() { clear(); }
  ProgressLine(const ProgressLine&) = delete;
  ProgressLine& operator=(const ProgressLine&) = delete;

  bool isVisible() const { return isVisible_; }

  // Draws ASCII text in place of what is shown.
  void show(std::string_view text);

  // Leaves an empty line, for other output.
  void clear();

 private:
  void draw(std::string_view text);

  const int descriptor_;
  const bool isVisible_;
  std::size_t shown_ = 0;
};

}  // namespace host
