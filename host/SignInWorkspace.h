// The workspace that the command gives the library: the library hands it the address to sign in at,
// and the sign-in that runs decides what to do with it.
#pragma once

#include <functional>
#include <utility>

#include "QVROAuth2Client/platform/Object.h"
#include "QVROAuth2Client/platform/Workspace.h"

namespace host {

// Opens nothing itself. Thread rule: one thread, the one that signs in.
class SignInWorkspace final : public qvr::Workspace {
 public:
  // Gets every address; answers whether the user was told of it.
  using Presenter = std::function<bool(const qvr::URL& url)>;

  void setPresenter(Presenter presenter) { presenter_ = std::move(presenter); }

  // False without a presenter.
  bool openURL(const qvr::URL& url) override { return presenter_ && presenter_(url); }

 private:
  Presenter presenter_;
};

// The one to install; it lives as long as the process.
qvr::Ref<SignInWorkspace> signInWorkspace();

}  // namespace host
