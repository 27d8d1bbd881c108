// A mail server as the providers run them: dovecot, which asks the counterpart about every token
// that it is shown, with a mailbox for every user, and a sink that takes what is sent through it.
#pragma once

#include <memory>
#include <string>

#include "tests/e2e/Counterpart.h"
#include "tests/e2e/mail/Template.h"
#include "tests/support/ChildProcess.h"

namespace e2e {

class MailServer {
 public:
  // For the users of one side of the counterpart. Starts the server and waits until it is ready.
  MailServer(const Counterpart& counterpart, const std::string& side);
  ~MailServer();
  MailServer(const MailServer&) = delete;
  MailServer& operator=(const MailServer&) = delete;

  static constexpr const char* kHost = "localhost";
  const std::string& imapPort() const { return values_.at("IMAP_PORT"); }    // TLS from the start
  const std::string& smtpPort() const { return values_.at("SMTP_PORT"); }    // STARTTLS
  const std::string& smtpsPort() const { return values_.at("SMTPS_PORT"); }  // TLS from the start

  // Puts a letter with this subject and text into the user's inbox.
  void deliver(const std::string& user, const std::string& subject, const std::string& text);

  // Waits until a letter has been sent through the server; answers all that the sink was told.
  const std::string& waitForSentLetter();
  const std::string& sent() const { return sink_->output(); }

  // Waits until the server has logged the text.
  bool waitForLog(const std::string& text) { return dovecot_->waitForError(text); }
  const std::string& log() const { return dovecot_->error(); }

  // Gives a file or a folder to the user that the server runs as, who is not root.
  void giveToServerUser(const std::string& path) const;
  const std::string& serverUser() const { return values_.at("SERVER_USER"); }

 private:
  void choosePorts();
  void startSink();
  void copyCertificate(const std::string& authority);
  void startDovecot();
  std::string write(const std::string& name, const std::string& content);

  support::TemporaryFolder folder_{};
  Values values_{};
  std::unique_ptr<support::ChildProcess> sink_{};
  std::unique_ptr<support::ChildProcess> dovecot_{};
};

}  // namespace e2e
