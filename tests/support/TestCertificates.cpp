#include "tests/support/TestCertificates.h"

#include <stdexcept>
#include <vector>

namespace support {
namespace {

constexpr const char* kLoopbackHosts = "DNS:localhost,IP:127.0.0.1";
constexpr const char* kPast = "20200101000000Z";
constexpr const char* kRecentPast = "20210101000000Z";
constexpr const char* kFuture = "20900101000000Z";
constexpr const char* kFarFuture = "20910101000000Z";

void runOpenSSL(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), "openssl");
  ChildProcess openSSL({arguments, {}});
  if (openSSL.wait() != 0) throw std::runtime_error("openssl: " + openSSL.error());
}

}  // namespace

TestCertificates::TestCertificates()
    : authority_(makeSelfSigned("authority", "basicConstraints=critical,CA:TRUE")) {}

Certificate TestCertificates::valid() const {
  return issue("valid", kLoopbackHosts, kPast, kFarFuture);
}

Certificate TestCertificates::expired() const {
  return issue("expired", kLoopbackHosts, kPast, kRecentPast);
}

Certificate TestCertificates::notYetValid() const {
  return issue("future", kLoopbackHosts, kFuture, kFarFuture);
}

Certificate TestCertificates::forAnotherHost() const {
  return issue("elsewhere", "DNS:elsewhere.example", kPast, kFarFuture);
}

Certificate TestCertificates::selfSigned() const {
  return makeSelfSigned("selfsigned", std::string("subjectAltName=") + kLoopbackHosts);
}

Certificate TestCertificates::makeSelfSigned(const std::string& name,
                                             const std::string& extensions) const {
  const Certificate made{folder_.file(name + ".pem"), folder_.file(name + ".key")};
  runOpenSSL({"req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes",
              "-keyout", made.keyFile, "-out", made.file, "-days", "2", "-subj", "/CN=" + name,
              "-addext", extensions});
  return made;
}

// `openssl ca` is the one command that takes both dates.
Certificate TestCertificates::issue(const std::string& name, const std::string& hosts,
                                    const std::string& from, const std::string& until) const {
  const Certificate made{folder_.file(name + ".pem"), folder_.file(name + ".key")};
  const std::string request = folder_.file(name + ".csr");
  const std::string configuration = folder_.write(
      name + ".cnf",
      "[ca]\ndefault_ca=it\n[it]\ndatabase=" + folder_.write(name + ".index", "") +
          "\nnew_certs_dir=" + folder_.path() +
          "\nrand_serial=yes\ndefault_md=sha256\npolicy=any\n" +
          "x509_extensions=leaf\n[any]\ncommonName=supplied\n[leaf]\nsubjectAltName=" + hosts +
          "\n");
  runOpenSSL({"req", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes",
              "-keyout", made.keyFile, "-out", request, "-subj", "/CN=" + name});
  runOpenSSL({"ca", "-batch", "-notext", "-config", configuration, "-cert", authority_.file,
              "-keyfile", authority_.keyFile, "-in", request, "-out", made.file, "-startdate", from,
              "-enddate", until});
  return made;
}

}  // namespace support
