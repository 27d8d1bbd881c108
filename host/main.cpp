// qvr-oauth2: access tokens for mail clients, sync tools and senders.
#include <cstdlib>

#include "host/CommandLine.h"
#include "host/Console.h"

int main(int argc, char** argv) {
  host::prepareStandardStreams();
  // Nothing is torn down: the library's threads may still be at work, and what is written is
  // durable already.
  std::_Exit(host::runCommandLine(argc, argv));
}
