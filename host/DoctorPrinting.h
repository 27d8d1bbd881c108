// How `doctor` shows what it found. Neither form holds a secret, a control character or anything
// but UTF-8, whatever the checks say.
#pragma once

#include <string>

#include "host/DoctorCheck.h"

namespace host {

// A line for each check, and an indented one for its remedy.
std::string textOf(const Checks& checks);

// One object: {"checks":[{"name","state","message","remedy"}],"problems":N}, and a newline. The
// state is "ok", "warning" or "problem"; the remedy is empty where there is nothing to mend.
std::string jsonOf(const Checks& checks);

}  // namespace host
