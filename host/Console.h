// The command's three standard streams. Results go to standard output and everything else to
// standard error; whoever closed the other end of either is no reason to die.
//
// Thread rule: any thread; each call writes its text whole, in one piece where the system allows.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "host/Failure.h"

namespace host {

// Prepares the process: a closed pipe is an error of write(), not a signal, and a standard stream
// that was closed at the start stays unusable, so that no file that is opened later takes its
// number. Call it first thing in main().
void prepareStandardStreams();

// Writes all of the text. False when it cannot be written, which kills nobody, or not within a
// minute or the command's own time (see Deadline.h), since nobody reads. Secrets pass writeOut() as
// they are; writeError() takes them out (see Secrets.h).
bool writeOut(std::string_view text);
bool writeError(std::string_view text);

// The same for any descriptor, secrets as they are.
bool writeAll(int descriptor, std::string_view text);

// Waits as long as a write would, for whoever writes by other means. False when nobody reads.
bool canWrite(int descriptor);

// Writes "qvr-oauth2: sentence" and a newline to standard error. On a terminal the "warning:" with
// which a sentence begins, and the name before a failure, are coloured.
void say(std::string_view sentence);

// Says the failure's sentence, and returns its exit status.
int report(const Failure& failure);

// The failure of a result that could not be written.
Failure cannotWriteOutput();

bool isTerminal(int descriptor);

// The next line of standard input, without its newline; absent at the end of input and when the
// command's time is over first. Reads a byte at a time, so that nothing behind the line is
// consumed.
std::optional<std::string> readLine();

// The text with every control character (C0, delete, and C1 in UTF-8) replaced by "?", so that what
// a server or a file says cannot move the cursor or add a line.
std::string printable(std::string_view text);

bool isUTF8(std::string_view text);

// The text, cut to so many bytes at most and "...", never inside a character of UTF-8.
std::string shortened(std::string_view text, std::size_t bytes);

}  // namespace host
