#include "host/SignInWorkspace.h"

namespace host {

qvr::Ref<SignInWorkspace> signInWorkspace() {
  static SignInWorkspace* const workspace = new SignInWorkspace;
  return qvr::Ref<SignInWorkspace>::retain(workspace);
}

}  // namespace host
