// The command line of qvr-oauth2: reads the arguments and the configuration, and runs the command.
#pragma once

namespace host {

// Runs what the arguments say (the first is the program's name), and returns the exit status. Lets
// no exception out.
int runCommandLine(int argc, const char* const* argv);

}  // namespace host
