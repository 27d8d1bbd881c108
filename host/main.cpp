// qvr-oauth2: access tokens for mail clients, sync tools and senders.
#include <malloc.h>

#include <cstdlib>

#include "host/CommandLine.h"
#include "host/Console.h"

int main(int argc, char** argv) {
#ifdef M_ARENA_MAX
  mallopt(M_ARENA_MAX, 1);  // the threads of a command hardly ever work at the same time
#endif
  host::prepareStandardStreams();
  // Nothing is torn down: the library's threads may still be at work, and what is written is
  // durable already.
  std::_Exit(host::runCommandLine(argc, argv));
}
