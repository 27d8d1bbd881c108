// The command as a mail client runs it: a whole process for each token.
#include <benchmark/benchmark.h>

#include "QVROAuth2Client/platform/Ports.h"
#include "bench/CommandHome.h"
#include "bench/Processes.h"

namespace {

using qvr::bench::CommandHome;
using qvr::bench::Program;

// A fresh token out of the encrypted file keychain.
void token_command_file(benchmark::State& state) {
  const CommandHome home("encrypted-file");
  qvr::EncryptedFileKeychainOptions options;
  options.directory = home.itemFolder();
  options.keyFile = home.keyFolder() + "/key";
  const std::string token = qvr::bench::storeFreshToken(qvr::makeEncryptedFileKeychain(options));
  const std::string service = std::string(qvr::bench::kBundleIdentifier) + ".Google.OAuth2Token";
  const Program floor({QVR_FLOOR_PROGRAMS "/floor_token_from_file", home.itemFolder(),
                       home.keyFolder(), "key", service, qvr::bench::kUser},
                      home.environment());
  const Program command({QVR_COMMAND, "token", "Google", qvr::bench::kUser}, home.environment());
  qvr::bench::measureProgramsInTurns(state, floor, command, token + "\n");
}
BENCHMARK(token_command_file)->UseManualTime()->Iterations(400);

}  // namespace

BENCHMARK_MAIN();
