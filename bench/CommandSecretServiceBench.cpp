// The command as a mail client runs it on a desktop: a whole process for each token, which lies in
// a real keyring on a bus of its own.
#include <benchmark/benchmark.h>

#include "QVROAuth2Client/platform/Ports.h"
#include "bench/CommandHome.h"
#include "bench/InTurns.h"
#include "bench/Processes.h"
#include "tests/e2e/desktop/GnomeKeyring.h"

namespace {

using qvr::bench::CommandHome;
using qvr::bench::Program;

// The daemon takes note of a program that ended on one thread and of one that begins on another,
// and does not survive both at once. Programs that follow each other faster than any user's wait
// until it has noted the end.
void run(e2e::GnomeKeyring& keyring, qvr::bench::Samples* samples, const Program& program,
         const std::string& output) {
  keyring.client().isLocked();  // answered in the order of what the bus told the daemon
  samples->add(qvr::bench::secondsEach(1, [&] { program.run(output); }));
}

// A fresh token out of the desktop's keyring.
void token_command_secret_service(benchmark::State& state) {
  const support::TemporaryFolder keyringFolder;
  e2e::GnomeKeyring keyring(keyringFolder);
  keyring.create({});
  const std::string token = qvr::bench::storeFreshToken(
      qvr::makeSecretServiceKeychain({.busAddress = keyring.busAddress()}));
  const CommandHome home("secret-service");
  std::vector<std::string> environment = home.environment();
  environment.push_back("DBUS_SESSION_BUS_ADDRESS=" + keyring.busAddress());
  const std::string service = std::string(qvr::bench::kBundleIdentifier) + ".Google.OAuth2Token";
  const Program floor(
      {QVR_FLOOR_PROGRAMS "/floor_token_from_secret_service", service, qvr::bench::kUser},
      environment);
  const Program command({QVR_COMMAND, "token", "Google", qvr::bench::kUser}, environment);
  state.counters["peak_bytes"] = static_cast<double>(command.peakBytes(token + "\n"));
  qvr::bench::Samples floorSamples;
  qvr::bench::Samples samples;
  for (auto _ : state) {
    run(keyring, &floorSamples, floor, token + "\n");
    run(keyring, &samples, command, token + "\n");
    state.SetIterationTime(samples.last());
  }
  floorSamples.report(state, "floor_");
  samples.report(state, "");
  state.counters["ratio"] = samples.quantile(0.5) / floorSamples.quantile(0.5);
}
BENCHMARK(token_command_secret_service)->UseManualTime()->Iterations(400);

}  // namespace

BENCHMARK_MAIN();
