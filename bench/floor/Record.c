#include "Record.h"

#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "Archive.h"

static double now(void) {
  struct timespec time;
  clock_gettime(CLOCK_REALTIME, &time);
  return (double)time.tv_sec + (double)time.tv_nsec / 1e9;
}

struct floor_record* floor_record_make(const char* const texts[FLOOR_TEXT_COUNT],
                                       double expires_in) {
  struct floor_record* const record = malloc(sizeof *record);
  record->reference_count = 1;
  record->expires_in = expires_in;
  record->created = now();
  for (size_t i = 0; i < FLOOR_TEXT_COUNT; ++i)
    record->texts[i] = strdup(texts[i]);
  return record;
}

struct floor_record* floor_record_retain(struct floor_record* record) {
  __atomic_add_fetch(&record->reference_count, 1, __ATOMIC_RELAXED);
  return record;
}

void floor_record_release(struct floor_record* record) {
  if (record == NULL) return;
  if (__atomic_sub_fetch(&record->reference_count, 1, __ATOMIC_ACQ_REL) != 0) return;
  for (size_t i = 0; i < FLOOR_TEXT_COUNT; ++i)
    free(record->texts[i]);
  free(record);
}

int floor_record_is_due(const struct floor_record* record) {
  return record->created + record->expires_in <= now() + 60;
}

unsigned char* floor_record_write(const struct floor_record* record, size_t* size) {
  struct floor_token token = {.access_token = record->texts[FLOOR_ACCESS_TOKEN],
                              .token_type = record->texts[FLOOR_TOKEN_TYPE],
                              .refresh_token = record->texts[FLOOR_REFRESH_TOKEN],
                              .expires_in = (long long)record->expires_in,
                              .creation_date = record->created};
  unsigned char* bytes;
  while (token.scope_count < FLOOR_TEXT_COUNT - FLOOR_FIRST_SCOPE) {
    token.scopes[token.scope_count] = record->texts[FLOOR_FIRST_SCOPE + token.scope_count];
    ++token.scope_count;
  }
  *size = floor_archive_write(&token, &bytes);
  return bytes;
}

/* Takes over the token's texts. */
static struct floor_record* record_of(const struct floor_token* token) {
  struct floor_record* const record = calloc(1, sizeof *record);
  record->reference_count = 1;
  record->expires_in = (double)token->expires_in;
  record->created = token->creation_date;
  record->texts[FLOOR_ACCESS_TOKEN] = token->access_token;
  record->texts[FLOOR_TOKEN_TYPE] = token->token_type;
  record->texts[FLOOR_REFRESH_TOKEN] = token->refresh_token;
  memcpy(record->texts + FLOOR_FIRST_SCOPE, token->scopes,
         (FLOOR_TEXT_COUNT - FLOOR_FIRST_SCOPE) * sizeof token->scopes[0]);
  return record;
}

struct floor_record* floor_record_read(const unsigned char* bytes, size_t size) {
  struct floor_token token;
  if (floor_archive_read(bytes, size, &token) &&
      token.scope_count == FLOOR_TEXT_COUNT - FLOOR_FIRST_SCOPE) {
    return record_of(&token);
  }
  floor_token_clear(&token);
  return NULL;
}
