// The configuration in the words of a step (see Steps.h).
#pragma once

#include <string>

#include "host/Configuration.h"

namespace host {

// Where it is, which registrations it has, and what it says of the servers; a secret by its length.
std::string narratedConfiguration(const Configuration& configuration);

}  // namespace host
