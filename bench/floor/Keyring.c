#include "bench/floor/Keyring.h"

#include <stdint.h>
#include <stdio.h>
#include <string.h>

static const char kRoot[] = "/org/freedesktop/secrets";
static const char kDefaultKeyring[] = "/org/freedesktop/secrets/aliases/default";
static const char kService[] = "org.freedesktop.Secret.Service";
static const char kCollection[] = "org.freedesktop.Secret.Collection";
static const char kItem[] = "org.freedesktop.Secret.Item";

enum { TIMEOUT_MICROSECONDS = 10 * 1000 * 1000 };

static int connect_to(struct floor_keyring* keyring, const char* address) {
  if (address == NULL) return sd_bus_open_user(&keyring->bus) >= 0;
  return sd_bus_new(&keyring->bus) >= 0 && sd_bus_set_address(keyring->bus, address) >= 0 &&
         sd_bus_set_bus_client(keyring->bus, 1) >= 0 && sd_bus_start(keyring->bus) >= 0;
}

static sd_bus_message* new_call(struct floor_keyring* keyring, const char* path,
                                const char* interface, const char* member) {
  sd_bus_message* call = NULL;
  sd_bus_message_new_method_call(keyring->bus, &call, keyring->service, path, interface, member);
  return call;
}

/* The answer to the call, which it gives back; null when it is an error or none comes. */
static sd_bus_message* answer_to(struct floor_keyring* keyring, sd_bus_message* call) {
  sd_bus_message* answer = NULL;
  sd_bus_call(keyring->bus, call, TIMEOUT_MICROSECONDS, NULL, &answer);
  sd_bus_message_unref(call);
  return answer;
}

static int copy_text(char* to, size_t capacity, const char* text) {
  return text != NULL && (size_t)snprintf(to, capacity, "%s", text) < capacity;
}

static int open_session(struct floor_keyring* keyring) {
  copy_text(keyring->service, sizeof keyring->service, "org.freedesktop.secrets");
  sd_bus_message* call = new_call(keyring, kRoot, kService, "OpenSession");
  if (call == NULL || sd_bus_message_append(call, "sv", "plain", "s", "") < 0) return 0;
  sd_bus_message* answer = answer_to(keyring, call);
  const char* session = NULL;
  const int opened =
      answer != NULL && sd_bus_message_skip(answer, "v") > 0 &&
      sd_bus_message_read(answer, "o", &session) > 0 &&
      copy_text(keyring->session, sizeof keyring->session, session) &&
      copy_text(keyring->service, sizeof keyring->service, sd_bus_message_get_sender(answer));
  sd_bus_message_unref(answer);
  return opened;
}

int floor_keyring_open(struct floor_keyring* keyring, const char* address) {
  memset(keyring, 0, sizeof *keyring);
  return connect_to(keyring, address) && open_session(keyring);
}

void floor_keyring_close(struct floor_keyring* keyring) {
  sd_bus_close_unref(keyring->bus);
}

static int is_open(struct floor_keyring* keyring) {
  sd_bus_message* call =
      new_call(keyring, kDefaultKeyring, "org.freedesktop.DBus.Properties", "Get");
  if (call == NULL || sd_bus_message_append(call, "ss", kCollection, "Locked") < 0) return 0;
  sd_bus_message* answer = answer_to(keyring, call);
  int locked = 1;
  const int known = answer != NULL && sd_bus_message_read(answer, "v", "b", &locked) > 0;
  sd_bus_message_unref(answer);
  return known && !locked;
}

/* The first open item with the attributes. */
static int find_item(struct floor_keyring* keyring, const char* service, const char* account,
                     char* path, size_t capacity) {
  sd_bus_message* call = new_call(keyring, kRoot, kService, "SearchItems");
  if (call == NULL ||
      sd_bus_message_append(call, "a{ss}", 2, "service", service, "account", account) < 0) {
    return 0;
  }
  sd_bus_message* answer = answer_to(keyring, call);
  const char* found = NULL;
  const int isFound = answer != NULL && sd_bus_message_enter_container(answer, 'a', "o") > 0 &&
                      sd_bus_message_read(answer, "o", &found) > 0 &&
                      copy_text(path, capacity, found);
  sd_bus_message_unref(answer);
  return isFound;
}

static long get_value(struct floor_keyring* keyring, const char* item, unsigned char* value,
                      size_t capacity) {
  sd_bus_message* call = new_call(keyring, item, kItem, "GetSecret");
  if (call == NULL || sd_bus_message_append(call, "o", keyring->session) < 0) return -1;
  sd_bus_message* answer = answer_to(keyring, call);
  const void* bytes = NULL;
  size_t size = 0;
  const int isRead = answer != NULL && sd_bus_message_enter_container(answer, 'r', "oayays") > 0 &&
                     sd_bus_message_skip(answer, "oay") > 0 &&
                     sd_bus_message_read_array(answer, 'y', &bytes, &size) > 0 && size <= capacity;
  if (isRead) memcpy(value, bytes, size);
  sd_bus_message_unref(answer);
  return isRead ? (long)size : -1;
}

long floor_keyring_read(struct floor_keyring* keyring, const char* service, const char* account,
                        unsigned char* value, size_t capacity) {
  char item[256];
  if (!is_open(keyring) || !find_item(keyring, service, account, item, sizeof item)) return -1;
  return get_value(keyring, item, value, capacity);
}
