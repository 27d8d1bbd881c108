// Server certificates for tests, made by the openssl command in a folder of their own: a private
// authority, and whatever may be wrong with a certificate that it issued.
#pragma once

#include <string>

#include "tests/support/ChildProcess.h"

namespace support {

// Paths of PEM files.
struct Certificate {
  std::string file;
  std::string keyFile;
};

class TestCertificates {
 public:
  TestCertificates();

  // What a client has to trust.
  const std::string& authorityFile() const { return authority_.file; }

  // For localhost and 127.0.0.1.
  Certificate valid() const;
  Certificate expired() const;
  Certificate notYetValid() const;
  Certificate selfSigned() const;

  // In order, but for another host.
  Certificate forAnotherHost() const;

 private:
  Certificate makeSelfSigned(const std::string& name, const std::string& extensions) const;
  Certificate issue(const std::string& name, const std::string& hosts, const std::string& from,
                    const std::string& until) const;

  TemporaryFolder folder_;
  Certificate authority_;
};

}  // namespace support
