// What a host on a freedesktop desktop needs beside the seams: to be handed the URLs of its
// schemes, and to tell the user something. Both go over the session bus; libsystemd is loaded with
// the first use.
#pragma once

#include <functional>
#include <string>

#include "QVROAuth2Client/platform/Export.h"
#include "QVROAuth2Client/platform/Object.h"
#include "QVROAuth2Client/platform/Text.h"

namespace qvr {
inline namespace v1 {

// Receives the URLs that the desktop opens with this application, as org.freedesktop.Application:
// the way of a desktop entry with DBusActivatable=true, whose file is named by the application's
// bus name. A URL then comes to the running process and is in no process's arguments.
//
// Thread rule: one thread at a time.
class QVR_EXPORT URLReceiver : public Object {
 public:
  // Takes a URL, as it came; false when it has no use for it, which the sender is told.
  using Handler = std::function<bool(const std::string& url)>;

  // For poll(): readable when process() has something to do. It stays the same descriptor.
  virtual int fileDescriptor() const = 0;

  // Calls `handler` for what the application was opened with next, one URL or a few, if anything
  // has arrived, and never blocks itself. While more waits the descriptor stays readable, so that
  // the host sees to its own deadlines in between, however much is sent. False when the bus is
  // gone: nothing will come any more, and the descriptor should no longer be waited for.
  virtual bool process(const Handler& handler) = 0;

  // Whether this process has the bus name. While another one has it, that one gets the URLs; this
  // one takes over, in process(), when the other ends.
  virtual bool ownsName() const = 0;

  // Gives the name up, once and for all, and calls `handler` for each URL that was sent to it under
  // the name until then: between this process and the one that has the name next none is lost.
  // Takes no longer than the timeout of the start, and the handler's last call: what has not been
  // handed over by then is refused, and its sender told.
  virtual void giveUpName(const Handler& handler) = 0;
};

struct URLReceiverOptions {
  std::string busName{};      // the application's, such as "org.example.Mail"
  std::string busAddress{};   // empty for the session's own
  double timeoutSeconds = 5;  // for the bus to answer at the start; a day at the most
};

// Connects to the bus, offers org.freedesktop.Application at the path that belongs to the name, and
// asks for the name. Null without a bus, without libsystemd, or when the name is none or is
// refused; `problem`, unless null, then says why in a sentence. It is not written otherwise.
QVR_EXPORT Ref<URLReceiver> makeURLReceiver(const URLReceiverOptions& options,
                                            std::string* problem = nullptr);

// Has the session bus look for service files again. There are buses that notice one that was
// installed later only where there was a folder for it when they started. False without a bus, or
// when it refuses.
QVR_EXPORT bool reloadSessionServices(const std::string& busAddress = {},
                                      double timeoutSeconds = 5);

struct NotificationOptions {
  std::string applicationName{};
  std::string summary{};
  std::string body{};        // plain text
  std::string busAddress{};  // empty for the session's own
  double timeoutSeconds = 5;
};

// Shows a desktop notification (org.freedesktop.Notifications). False when there is nobody to show
// it.
QVR_EXPORT bool showNotification(const NotificationOptions& options);

}  // namespace v1
}  // namespace qvr
