#include "host/Progress.h"

#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "host/Colour.h"

namespace host {

namespace {

std::size_t columnsOf(int terminal) {
  winsize size{};
  const bool known = ioctl(terminal, TIOCGWINSZ, &size) == 0 && size.ws_col > 1;
  return known ? size.ws_col : 80;
}

}  // namespace

std::string waitingText(double secondsLeft) {
  const long long seconds = std::max(0LL, std::llround(std::ceil(secondsLeft)));
  char time[32];
  std::snprintf(time, sizeof time, "%lld:%02lld", seconds / 60, seconds % 60);
  return "Waiting for the browser, " + std::string(time) + " left. Ctrl-C cancels.";
}

std::string drawnOver(std::size_t shown, std::string_view text, std::size_t columns) {
  // The last column stays free: some terminals wrap as soon as it is written.
  const std::string_view fitting = text.substr(0, columns - 1);
  const std::size_t leftOver = shown > fitting.size() ? shown - fitting.size() : 0;
  std::string drawing = "\r" + std::string(fitting) + std::string(leftOver, ' ');
  if (leftOver > 0) drawing += "\r" + std::string(fitting);
  return drawing;
}

ProgressLine::ProgressLine(int descriptor)
    : descriptor_(descriptor), isVisible_(canDraw(descriptor)) {}

void ProgressLine::show(std::string_view text) {
  if (isVisible_) draw(text);
}

void ProgressLine::clear() {
  if (shown_ > 0) draw("");
}

void ProgressLine::draw(std::string_view text) {
  const std::size_t columns = columnsOf(descriptor_);
  const std::string drawing = drawnOver(std::min(shown_, columns - 1), text, columns);
  // A terminal that is gone, or that was stopped (Ctrl-S), is no reason to wait for it.
  pollfd terminal{descriptor_, POLLOUT, 0};
  if (poll(&terminal, 1, 0) <= 0) return;
  if (write(descriptor_, drawing.data(), drawing.size()) < 0) return;
  shown_ = std::min(text.size(), columns - 1);
}

}  // namespace host
