// Why a command cannot go on: one sentence that says what to do, and the exit status.
#pragma once

#include <string>

#include "host/ExitStatus.h"

namespace host {

struct Failure {
  int status = kFailed;
  std::string sentence;
};

}  // namespace host
