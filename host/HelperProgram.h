// Running a program of the system that does something on the side, and without which things go on.
#pragma once

#include <string>
#include <vector>

namespace host {

// Runs the program, found in $PATH, with its output discarded. True when it exited with status 0 in
// time; at the deadline it is ended.
bool runHelperProgram(const std::vector<std::string>& arguments, double seconds);

}  // namespace host
