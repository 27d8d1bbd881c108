/* Reads the access token out of a stored record: a keyed archive in a binary property list. Numbers
   are big-endian, an object is a marker byte and its payload, and a container refers to the table
   of offsets. Every read is checked against the length. */
#ifndef QVR_FLOOR_STORED_TOKEN_H
#define QVR_FLOOR_STORED_TOKEN_H

#include <stdint.h>
#include <string.h>
#include <time.h>

struct archive {
  const unsigned char* bytes;
  size_t size;
  size_t offset_width, reference_width, count, table;
  size_t objects; /* the array of the archive's objects */
};

/* An object: its type (the high half of the marker) and where its payload is. */
struct object {
  unsigned type;
  size_t length;
  const unsigned char* payload;
};

enum {
  kType_real = 2,
  kType_date = 3,
  kType_ascii = 5,
  kType_uid = 8,
  kType_array = 10,
  kType_dictionary = 13
};

static inline uint64_t big_endian(const unsigned char* bytes, size_t width) {
  uint64_t number = 0;
  for (size_t i = 0; i < width; ++i)
    number = number << 8 | bytes[i];
  return number;
}

/* How many bytes the payload of an object has. */
static inline size_t payload_size(const struct archive* a, const struct object* o) {
  switch (o->type) {
    case 1:
    case kType_real:
    case kType_date:
      return (size_t)1 << o->length;
    case 6:
      return 2 * o->length;
    case kType_uid:
      return o->length + 1;
    case kType_array:
    case 12:
      return o->length * a->reference_width;
    case kType_dictionary:
      return 2 * o->length * a->reference_width;
    default:
      return o->length;
  }
}

/* 0 when there is no such object, or not all of it. */
static inline int object_at(const struct archive* a, size_t index, struct object* o) {
  if (index >= a->count) return 0;
  const uint64_t offset =
      big_endian(a->bytes + a->table + index * a->offset_width, a->offset_width);
  if (offset < 8 || offset >= a->table) return 0;
  const unsigned char* at = a->bytes + offset;
  const unsigned char* const end = a->bytes + a->table;
  o->type = *at >> 4;
  o->length = *at++ & 15;
  if (o->length == 15) { /* the length follows, as an integer */
    if (at == end || *at >> 4 != 1 || (*at & 15) > 3) return 0;
    const size_t width = (size_t)1 << (*at++ & 15);
    if ((size_t)(end - at) < width) return 0;
    o->length = big_endian(at, width);
    at += width;
  }
  o->payload = at;
  return o->length <= a->size && (size_t)(end - at) >= payload_size(a, o);
}

static inline int is_text(const struct object* o, const char* text) {
  return o->type == kType_ascii && o->length == strlen(text) &&
         memcmp(o->payload, text, o->length) == 0;
}

/* The value that a dictionary has for a key. */
static inline int member(const struct archive* a, const struct object* dictionary, const char* key,
                         struct object* value) {
  if (dictionary->type != kType_dictionary) return 0;
  const size_t width = a->reference_width;
  for (size_t i = 0; i < dictionary->length; ++i) {
    struct object name;
    if (!object_at(a, big_endian(dictionary->payload + i * width, width), &name)) return 0;
    if (!is_text(&name, key)) continue;
    return object_at(a, big_endian(dictionary->payload + (dictionary->length + i) * width, width),
                     value);
  }
  return 0;
}

/* The object that a UID stands for: an index into the archive's own array. */
static inline int target(const struct archive* a, struct object* o) {
  struct object objects;
  if (o->type != kType_uid || o->length > 7 || !object_at(a, a->objects, &objects)) return 0;
  const uint64_t index = big_endian(o->payload, o->length + 1);
  if (index >= objects.length) return 0;
  return object_at(a, big_endian(objects.payload + index * a->reference_width, a->reference_width),
                   o);
}

static inline int entry(const struct archive* a, const struct object* dictionary, const char* key,
                        struct object* value) {
  return member(a, dictionary, key, value) && target(a, value);
}

static inline int number(const struct object* o, double* result) {
  if (o->type == 1 && o->length <= 3) {
    *result = (double)(int64_t)big_endian(o->payload, (size_t)1 << o->length);
    return 1;
  }
  if ((o->type != kType_real && o->type != kType_date) || o->length != 3) return 0;
  const uint64_t bits = big_endian(o->payload, 8);
  memcpy(result, &bits, 8);
  return 1;
}

/* Reads the trailer and the names of the top dictionary; *root is the record. */
static inline int open_archive(struct archive* a, const unsigned char* bytes, size_t size,
                               struct object* root) {
  struct object top, objects;
  if (size < 40 || memcmp(bytes, "bplist00", 8) != 0) return 0;
  const unsigned char* const trailer = bytes + size - 32;
  a->bytes = bytes;
  a->size = size;
  a->offset_width = trailer[6];
  a->reference_width = trailer[7];
  a->count = big_endian(trailer + 8, 8);
  a->table = big_endian(trailer + 24, 8);
  if (a->offset_width - 1 > 7 || a->reference_width - 1 > 7 || a->table < 8 ||
      a->table > size - 32 || a->count > (size - 32 - a->table) / a->offset_width) {
    return 0;
  }
  if (!object_at(a, big_endian(trailer + 16, 8), &top)) return 0;
  /* The array is found by its place, so that its members can be. */
  for (size_t i = 0; i < top.length && top.type == kType_dictionary; ++i) {
    struct object name;
    const size_t width = a->reference_width;
    if (!object_at(a, big_endian(top.payload + i * width, width), &name)) return 0;
    if (is_text(&name, "$objects"))
      a->objects = big_endian(top.payload + (top.length + i) * width, width);
  }
  return object_at(a, a->objects, &objects) && objects.type == kType_array &&
         member(a, &top, "$top", root) && entry(a, root, "root", root);
}

/* Whether the record's token is still good for a minute. */
static inline int is_fresh(const struct archive* a, const struct object* record) {
  const double kReferenceDate = 978307200; /* 2001-01-01 in seconds of time(2) */
  struct object value;
  double seconds, created;
  struct timespec now;
  if (!entry(a, record, "QVR.expiresIn", &value) || !number(&value, &seconds)) return 0;
  if (!entry(a, record, "QVR.creationDate", &value) || !member(a, &value, "NS.time", &value) ||
      !number(&value, &created)) {
    return 0;
  }
  clock_gettime(CLOCK_REALTIME, &now);
  return (double)now.tv_sec - kReferenceDate - created < seconds - 60;
}

/* The access token of a record that is not due for a refresh. 0 when there is none, or one with a
   character that does not belong on the line. */
static inline int fresh_access_token(const unsigned char* bytes, size_t size,
                                     const unsigned char** token, size_t* length) {
  struct archive a = {0};
  struct object record, value;
  if (!open_archive(&a, bytes, size, &record) || !is_fresh(&a, &record)) return 0;
  if (!entry(&a, &record, "QVR.accessToken", &value) || value.type != kType_ascii) return 0;
  for (size_t i = 0; i < value.length; ++i) {
    if (value.payload[i] < 0x20 || value.payload[i] >= 0x7f) return 0;
  }
  *token = value.payload;
  *length = value.length;
  return value.length > 0;
}

#endif
