// An account as the user names it.
#pragma once

#include <string>

namespace host {

struct Account {
  std::string provider;  // one of the library's exact names
  std::string username;
};

}  // namespace host
