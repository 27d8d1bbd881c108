// What the command does, step by step, on standard error, for those who asked for it by
// `--verbose`. A line never holds a secret: a caller names one by lengthOf(), and what slips
// through is taken out (see Secrets.h).
//
// Thread rule: any thread; it is switched on before any other thread starts.
#pragma once

#include <string>
#include <string_view>

namespace host {

void showSteps(bool on);
bool stepsAreShown();

// Writes "qvr-oauth2: [SECONDS] sentence" where SECONDS is the time since they were switched on;
// nothing when steps are not shown. A sentence that costs something to build is asked for first:
// `if (stepsAreShown()) step(...)`.
void step(std::string_view sentence);

// What stands for a secret in a step: "{length = N}".
std::string lengthOf(std::string_view secret);

}  // namespace host
