/* A read from the Secret Service by hand: sd-bus, called as its manual shows. */
#ifndef QVR_BENCH_FLOOR_KEYRING_H
#define QVR_BENCH_FLOOR_KEYRING_H

#include <stddef.h>
#include <systemd/sd-bus.h>

#ifdef __cplusplus
extern "C" {
#endif

/* A connection with a plain session. */
struct floor_keyring {
  sd_bus* bus;
  char service[32]; /* the unique name of who answered */
  char session[128];
};

/* Connects to the bus, the session's own when the address is null, and opens a session. Answers
   false when that fails. */
int floor_keyring_open(struct floor_keyring* keyring, const char* address);

/* Looks whether the default keyring is open, searches the item and gets its value. Answers the
   value's size, or -1 when anything failed, the value is longer than `capacity`, or the keyring is
   locked, which it then would not say by itself. */
long floor_keyring_read(struct floor_keyring* keyring, const char* service, const char* account,
                        unsigned char* value, size_t capacity);

void floor_keyring_close(struct floor_keyring* keyring);

#ifdef __cplusplus
}
#endif

#endif
