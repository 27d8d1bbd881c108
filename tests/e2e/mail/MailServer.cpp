#include "tests/e2e/mail/MailServer.h"

#include <arpa/inet.h>
#include <grp.h>
#include <pwd.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <vector>

namespace e2e {

namespace {

// Dovecot does not let root have mail, so it runs as somebody else for root.
const passwd& serverAccount() {
  const passwd* user = getuid() == 0 ? getpwnam("nobody") : getpwuid(getuid());
  if (user == nullptr) throw std::runtime_error("nobody to run the mail server as");
  return *user;
}

// Loopback ports that were free a moment ago; dovecot takes no ready sockets.
std::vector<std::string> freePorts(std::size_t count) {
  std::vector<int> sockets;
  std::vector<std::string> ports;
  while (ports.size() < count) {
    sockets.push_back(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* any = reinterpret_cast<sockaddr*>(&address);
    if (bind(sockets.back(), any, size) != 0 || getsockname(sockets.back(), any, &size) != 0) {
      throw std::system_error(errno, std::generic_category(), "no port is free");
    }
    ports.push_back(std::to_string(ntohs(address.sin_port)));
  }
  for (const int each : sockets)
    close(each);
  return ports;
}

}  // namespace

MailServer::MailServer(const Counterpart& counterpart, const std::string& side) {
  const group* serverGroup = getgrgid(serverAccount().pw_gid);
  values_ = {{"FOLDER", folder_.path()},
             {"SERVER_USER", serverAccount().pw_name},
             {"SERVER_GROUP", serverGroup == nullptr ? "nogroup" : serverGroup->gr_name},
             {"ISSUER", counterpart.ready(side, "issuer")},
             {"CLIENT", counterpart.ready(side, "clientId")},
             {"MECHANISMS", side == "google" ? "xoauth2 oauthbearer" : "xoauth2"}};
  giveToServerUser(folder_.path());
  choosePorts();
  startSink();
  copyCertificate(counterpart.certificateAuthority());
  startDovecot();
}

MailServer::~MailServer() {
  dovecot_->signal(SIGTERM);
  dovecot_->wait(10);
}

void MailServer::choosePorts() {
  const std::vector<std::string> ports = freePorts(3);
  values_["IMAP_PORT"] = ports[0];
  values_["SMTP_PORT"] = ports[1];
  values_["SMTPS_PORT"] = ports[2];
}

void MailServer::startSink() {
  const std::string word = "sink: port ";
  sink_ = std::make_unique<support::ChildProcess>(
      support::ChildProcess::Options{{"python3", QVR_MAIL_FOLDER "/programs/sink.py"}, {}});
  if (!sink_->waitForOutput("\n")) throw std::runtime_error("no sink: " + sink_->error());
  values_["SINK_PORT"] =
      sink_->output().substr(word.size(), sink_->output().find('\n') - word.size());
}

void MailServer::copyCertificate(const std::string& authority) {
  const std::filesystem::path source = std::filesystem::path(authority).parent_path();
  for (const char* name : {"ca.pem", "server.pem", "server.key"}) {
    std::filesystem::copy_file(source / name, folder_.file(name));
    giveToServerUser(folder_.file(name));
  }
}

std::string MailServer::write(const std::string& name, const std::string& content) {
  const std::string path = folder_.write(name, content);
  giveToServerUser(path);
  return path;
}

void MailServer::startDovecot() {
  write("oauth2.conf", fillTemplate("server/oauth2.conf.in", values_));
  const std::string path = write("dovecot.conf", fillTemplate("server/dovecot.conf.in", values_));
  support::ChildProcess::Options options{{"/usr/sbin/dovecot", "-F", "-c", path}, {}};
  if (getuid() == 0) {
    options.arguments.insert(options.arguments.begin(),
                             {"setpriv", "--reuid=" + values_["SERVER_USER"],
                              "--regid=" + values_["SERVER_GROUP"], "--clear-groups"});
  }
  dovecot_ = std::make_unique<support::ChildProcess>(options);
  if (!waitForLog("starting up for imap, submission")) {
    throw std::runtime_error("dovecot did not start: " + log());
  }
}

void MailServer::giveToServerUser(const std::string& path) const {
  const passwd& user = serverAccount();
  if (chown(path.c_str(), user.pw_uid, user.pw_gid) != 0) {
    throw std::system_error(errno, std::generic_category(), "chown " + path);
  }
}

void MailServer::deliver(const std::string& user, const std::string& subject,
                         const std::string& text) {
  const std::string box = "mail/" + user;
  for (const std::string& name :
       {std::string("mail"), box, box + "/new", box + "/cur", box + "/tmp"}) {
    std::filesystem::create_directories(folder_.file(name));
    giveToServerUser(folder_.file(name));
  }
  write(box + "/new/" + subject,
        "From: carol@example.org\r\nTo: " + user + "\r\nSubject: " + subject + "\r\nMessage-ID: <" +
            subject + "@example.org>\r\n" + "Date: Sat, 01 Feb 2025 10:00:00 +0000\r\n\r\n" + text +
            "\r\n");
}

const std::string& MailServer::waitForSentLetter() {
  sink_->waitForOutput("sink: letter taken");
  return sent();
}

}  // namespace e2e
