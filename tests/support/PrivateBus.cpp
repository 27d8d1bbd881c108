#include "tests/support/PrivateBus.h"

#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace support {

namespace {

// A session bus without the machine's service folders.
std::string configuration(const std::string& address, const std::string& serviceFolder) {
  const std::string services =
      serviceFolder.empty() ? "" : "<servicedir>" + serviceFolder + "</servicedir>";
  return "<!DOCTYPE busconfig PUBLIC '-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN'"
         " 'http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd'>"
         "<busconfig><type>session</type><listen>" +
         address + "</listen><auth>EXTERNAL</auth>" + services +
         "<policy context='default'><allow send_destination='*' eavesdrop='true'/>"
         "<allow eavesdrop='true'/><allow own='*'/></policy></busconfig>";
}

}  // namespace

PrivateBus::PrivateBus(const std::string& serviceFolder,
                       std::map<std::string, std::string> environment)
    : address_("unix:path=" + folder_.file("bus")), environment_(std::move(environment)) {
  folder_.write("bus.conf", configuration(address_, serviceFolder));
  restart();
}

void PrivateBus::crash() {
  daemon_->signal(SIGKILL);
  daemon_->wait();
}

void PrivateBus::restart() {
  unlink(folder_.file("bus").c_str());  // left by a crash
  ChildProcess::Options options;
  // The bus ends with this process, also when that is killed.
  options.arguments = {"setpriv",
                       "--pdeathsig",
                       "KILL",
                       "dbus-daemon",
                       "--nofork",
                       "--nopidfile",
                       "--print-address",
                       "--config-file=" + folder_.file("bus.conf")};
  options.environment = environment_;
  daemon_ = std::make_unique<ChildProcess>(options);
  if (!daemon_->waitForOutput("unix:path=")) {
    throw std::runtime_error("dbus-daemon does not start: " + daemon_->error());
  }
}

SilentBus::SilentBus() : socket_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  const std::string path = folder_.file("bus");
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
  if (bind(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
      listen(socket_, 8) != 0) {
    throw std::system_error(errno, std::generic_category(), path);
  }
}

SilentBus::~SilentBus() {
  close(socket_);
}

}  // namespace support
