// libsystemd's sd-bus, loaded with the first use of a bus: most runs of most hosts need none, and
// a machine without it has to work. Once loaded it stays.
#pragma once

#include <systemd/sd-bus.h>

#include <string>

namespace qvr {

// The functions in use, by their own names.
#define QVR_BUS_FUNCTIONS(X)        \
  X(sd_bus_add_object_vtable)       \
  X(sd_bus_call_async)              \
  X(sd_bus_close_unref)             \
  X(sd_bus_get_events)              \
  X(sd_bus_get_fd)                  \
  X(sd_bus_get_timeout)             \
  X(sd_bus_get_unique_name)         \
  X(sd_bus_is_open)                 \
  X(sd_bus_is_ready)                \
  X(sd_bus_match_signal_async)      \
  X(sd_bus_message_append)          \
  X(sd_bus_message_append_array)    \
  X(sd_bus_message_at_end)          \
  X(sd_bus_message_close_container) \
  X(sd_bus_message_enter_container) \
  X(sd_bus_message_exit_container)  \
  X(sd_bus_message_get_error)       \
  X(sd_bus_message_get_sender)      \
  X(sd_bus_message_new_method_call) \
  X(sd_bus_message_open_container)  \
  X(sd_bus_message_read)            \
  X(sd_bus_message_read_array)      \
  X(sd_bus_message_ref)             \
  X(sd_bus_message_sensitive)       \
  X(sd_bus_message_skip)            \
  X(sd_bus_message_unref)           \
  X(sd_bus_new)                     \
  X(sd_bus_open_user)               \
  X(sd_bus_process)                 \
  X(sd_bus_reply_method_error)      \
  X(sd_bus_reply_method_return)     \
  X(sd_bus_set_address)             \
  X(sd_bus_set_bus_client)          \
  X(sd_bus_slot_unref)              \
  X(sd_bus_start)                   \
  X(sd_bus_wait)

// A plain table, so that a test can make any of them fail.
struct BusLibrary {
#define QVR_DECLARE_BUS_FUNCTION(name) decltype(&::name) name = nullptr;
  QVR_BUS_FUNCTIONS(QVR_DECLARE_BUS_FUNCTION)
#undef QVR_DECLARE_BUS_FUNCTION

  // Why the library cannot be used; empty when it can.
  std::string problem;

  // Loads the named library.
  static BusLibrary open(const char* fileName);

  // libsystemd.so.0, opened by the first call.
  static const BusLibrary& shared();
};

}  // namespace qvr
