/* Looks up the entries of a token in its archive. Nothing is read that was not checked to lie
   within the archive and to be of its type. */
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include "Archive.h"

enum { TRAILER = 32, LONGEST = 1 << 20, NONE = -1 };

enum { INTEGER = 1, REAL = 2, TEXT = 5, UID = 8, ARRAY = 10, DICTIONARY = 13 };

struct list {
  const unsigned char* bytes;
  size_t table; /* of offsets; the objects end here */
  long count;
  int offset_width;
  int reference_width;
  long objects; /* the archive's table of objects */
};

struct object {
  int type; /* NONE for one that is not sound */
  size_t length;
  const unsigned char* payload;
};

static uint64_t number(const unsigned char* bytes, int width) {
  uint64_t value = 0;
  for (int i = 0; i < width; ++i)
    value = value << 8 | bytes[i];
  return value;
}

static int open_list(struct list* list, const unsigned char* archive, size_t length) {
  const unsigned char* const trailer = archive + length - TRAILER;
  if (length < 8 + TRAILER || length > LONGEST || memcmp(archive, "bplist00", 8) != 0) return 0;
  const uint64_t count = number(trailer + 8, 8);
  const uint64_t table = number(trailer + 24, 8);
  list->bytes = archive;
  list->offset_width = trailer[6];
  list->reference_width = trailer[7];
  if (list->offset_width < 1 || list->offset_width > 8 || list->reference_width < 1 ||
      list->reference_width > 8 || table < 8 || table > length - TRAILER ||
      count > (length - TRAILER - table) / (size_t)list->offset_width ||
      number(trailer + 16, 8) >= count) {
    return 0;
  }
  list->table = (size_t)table;
  list->count = (long)count;
  return 1;
}

/* How many bytes a unit of an object's length takes. */
static size_t unit(const struct list* list, int type) {
  if (type == ARRAY) return (size_t)list->reference_width;
  if (type == DICTIONARY) return 2 * (size_t)list->reference_width;
  return 1;
}

static struct object object_at(const struct list* list, long index) {
  const struct object unsound = {NONE, 0, NULL};
  if (index < 0 || index >= list->count) return unsound;
  const unsigned char* const entry = list->bytes + list->table + index * list->offset_width;
  const uint64_t offset = number(entry, list->offset_width);
  if (offset < 8 || offset >= list->table) return unsound;
  const unsigned char* const end = list->bytes + list->table;
  const unsigned char* at = list->bytes + offset;
  struct object object = {*at >> 4, *at & 15, at + 1};
  if (object.type == INTEGER || object.type == REAL) {
    if (object.length > 3) return unsound;
    object.length = (size_t)1 << object.length;
  } else if (object.type == UID) {
    ++object.length;
  } else if (object.length == 15) {
    const int width =
        at + 1 < end && at[1] >> 4 == INTEGER && (at[1] & 15) < 4 ? 1 << (at[1] & 15) : 0;
    if (width == 0 || width > end - at - 2) return unsound;
    object.length = (size_t)number(at + 2, width);
    object.payload = at + 2 + width;
  }
  if (object.length > (size_t)(end - object.payload) / unit(list, object.type)) return unsound;
  return object;
}

static struct object object_of(const struct list* list, long index, int type) {
  struct object object = object_at(list, index);
  if (object.type != type) object.type = NONE;
  return object;
}

static long reference(const struct list* list, const struct object* container, size_t position) {
  const uint64_t index =
      number(container->payload + position * (size_t)list->reference_width, list->reference_width);
  return index < (uint64_t)list->count ? (long)index : NONE;
}

static int equals(const struct list* list, long index, const char* text) {
  const struct object object = object_of(list, index, TEXT);
  return object.type == TEXT && object.length == strlen(text) &&
         memcmp(object.payload, text, object.length) == 0;
}

static long find(const struct list* list, long dictionary, const char* key) {
  const struct object object = object_of(list, dictionary, DICTIONARY);
  if (object.type == NONE) return NONE;
  for (size_t i = 0; i < object.length; ++i) {
    if (equals(list, reference(list, &object, i), key))
      return reference(list, &object, object.length + i);
  }
  return NONE;
}

/* The object that a UID refers to. */
static long resolved(const struct list* list, long index) {
  const struct object uid = object_of(list, index, UID);
  const struct object objects = object_of(list, list->objects, ARRAY);
  if (uid.type == NONE || objects.type == NONE || uid.length > 8) return NONE;
  const uint64_t position = number(uid.payload, (int)uid.length);
  return position > 0 && position < objects.length ? reference(list, &objects, (size_t)position)
                                                   : NONE;
}

static int is_instance(const struct list* list, long index, const char* name) {
  const long description = resolved(list, find(list, index, "$class"));
  const struct object names = object_of(list, find(list, description, "$classes"), ARRAY);
  if (names.type == NONE) return 0;
  for (size_t i = 0; i < names.length; ++i)
    if (equals(list, reference(list, &names, i), name)) return 1;
  return 0;
}

/* A copy; null for what is no ASCII text. */
static char* text_at(const struct list* list, long index) {
  const struct object object = object_of(list, index, TEXT);
  if (object.type == NONE || !floor_is_ascii(object.payload, object.length)) return NULL;
  char* const text = malloc(object.length + 1);
  if (text == NULL) return NULL;
  memcpy(text, object.payload, object.length);
  text[object.length] = '\0';
  return text;
}

static int read_scopes(const struct list* list, long set, struct floor_token* token) {
  if (!is_instance(list, set, "NSSet")) return 0;
  const struct object members = object_of(list, find(list, set, "NS.objects"), ARRAY);
  if (members.type == NONE || members.length > FLOOR_SCOPES) return 0;
  for (size_t i = 0; i < members.length; ++i) {
    char* const scope = text_at(list, resolved(list, reference(list, &members, i)));
    if (scope == NULL) return 0;
    token->scopes[token->scope_count++] = scope;
  }
  return 1;
}

static int read_date(const struct list* list, long date, struct floor_token* token) {
  if (!is_instance(list, date, "NSDate")) return 0;
  const struct object time = object_of(list, find(list, date, "NS.time"), REAL);
  if (time.type == NONE || time.length != sizeof(double)) return 0;
  const uint64_t bits = number(time.payload, sizeof bits);
  memcpy(&token->creation_date, &bits, sizeof bits);
  return 1;
}

static int read_entries(const struct list* list, long root, struct floor_token* token) {
  const struct object expiry =
      object_of(list, resolved(list, find(list, root, "QVR.expiresIn")), INTEGER);
  if (expiry.type == NONE) return 0;
  token->expires_in = (long long)number(expiry.payload, (int)expiry.length);
  token->access_token = text_at(list, resolved(list, find(list, root, "QVR.accessToken")));
  token->token_type = text_at(list, resolved(list, find(list, root, "QVR.tokenType")));
  token->refresh_token = text_at(list, resolved(list, find(list, root, "QVR.refreshToken")));
  return token->access_token && token->token_type && token->refresh_token &&
         read_scopes(list, resolved(list, find(list, root, "QVR.grantedScopes")), token) &&
         read_date(list, resolved(list, find(list, root, "QVR.creationDate")), token);
}

int floor_archive_read(const unsigned char* archive, size_t length, struct floor_token* token) {
  struct list list;
  memset(token, 0, sizeof *token);
  if (!open_list(&list, archive, length)) return 0;
  const long top = (long)number(archive + length - 16, 8);
  const struct object version = object_of(&list, find(&list, top, "$version"), INTEGER);
  if (version.type == NONE || number(version.payload, (int)version.length) != 100000) return 0;
  if (!equals(&list, find(&list, top, "$archiver"), "NSKeyedArchiver")) return 0;
  list.objects = find(&list, top, "$objects");
  const long root = resolved(&list, find(&list, find(&list, top, "$top"), "root"));
  return is_instance(&list, root, "QVROAuth2Token") && read_entries(&list, root, token);
}

void floor_token_clear(struct floor_token* token) {
  free(token->access_token);
  free(token->token_type);
  free(token->refresh_token);
  for (size_t i = 0; i < token->scope_count; ++i)
    free(token->scopes[i]);
}
