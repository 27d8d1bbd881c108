/* A token record; its stored form is the keyed archive, as the library's is. */
#ifndef FLOOR_RECORD_H
#define FLOOR_RECORD_H

#include <stddef.h>

enum {
  FLOOR_ACCESS_TOKEN,
  FLOOR_TOKEN_TYPE,
  FLOOR_REFRESH_TOKEN,
  FLOOR_FIRST_SCOPE, /* of three, sorted */
  FLOOR_TEXT_COUNT = FLOOR_FIRST_SCOPE + 3
};

struct floor_record {
  int reference_count; /* atomic */
  double expires_in;
  double created; /* seconds since 1970 */
  char* texts[FLOOR_TEXT_COUNT];
};

/* A record made now, with copies of the texts. */
struct floor_record* floor_record_make(const char* const texts[FLOOR_TEXT_COUNT],
                                       double expires_in);
struct floor_record* floor_record_retain(struct floor_record* record);
void floor_record_release(struct floor_record* record);

/* Whether it ends within a minute. */
int floor_record_is_due(const struct floor_record* record);

/* The stored form, for free(). */
unsigned char* floor_record_write(const struct floor_record* record, size_t* size);

/* Null when the bytes are no record. */
struct floor_record* floor_record_read(const unsigned char* bytes, size_t size);

#endif
