// toml++, compiled into the command: its shared library would bring the shared C++ runtime with it.
#define TOML_IMPLEMENTATION
#include <toml++/toml.h>
