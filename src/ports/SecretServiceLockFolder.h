// Where the lock file lies by which one writer at a time looks for an item and makes it: some
// services make a second one when two do that at once.
#pragma once

#include <string>

namespace qvr {

// The same for all of a user's programs: in the runtime folder where there is one, else in the
// folder for temporary files. It may have to be made.
std::string secretServiceLockFolder();

}  // namespace qvr
