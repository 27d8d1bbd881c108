#include "Record.h"

#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

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

/* Answers where the next byte goes. */
static unsigned char* append(unsigned char* end, const void* bytes, size_t count) {
  memcpy(end, bytes, count);
  return end + count;
}

unsigned char* floor_record_write(const struct floor_record* record, size_t* size) {
  uint32_t lengths[FLOOR_TEXT_COUNT];
  unsigned char* bytes;
  unsigned char* end;
  *size = 2 * sizeof(double);
  for (size_t i = 0; i < FLOOR_TEXT_COUNT; ++i) {
    lengths[i] = (uint32_t)strlen(record->texts[i]);
    *size += sizeof lengths[i] + lengths[i];
  }
  end = bytes = malloc(*size);
  end = append(end, &record->expires_in, sizeof record->expires_in);
  end = append(end, &record->created, sizeof record->created);
  for (size_t i = 0; i < FLOOR_TEXT_COUNT; ++i) {
    end = append(end, &lengths[i], sizeof lengths[i]);
    end = append(end, record->texts[i], lengths[i]);
  }
  return bytes;
}

/* Copies `count` bytes and moves past them; 0 when there are fewer. */
static int take(const unsigned char** bytes, size_t* left, void* out, size_t count) {
  if (*left < count) return 0;
  memcpy(out, *bytes, count);
  *bytes += count;
  *left -= count;
  return 1;
}

static char* take_text(const unsigned char** bytes, size_t* left) {
  uint32_t length;
  char* text;
  if (!take(bytes, left, &length, sizeof length) || *left < length) return NULL;
  text = malloc((size_t)length + 1);
  take(bytes, left, text, length);
  text[length] = '\0';
  return text;
}

struct floor_record* floor_record_read(const unsigned char* bytes, size_t size) {
  struct floor_record* const record = calloc(1, sizeof *record);
  int is_whole = take(&bytes, &size, &record->expires_in, sizeof record->expires_in) &&
                 take(&bytes, &size, &record->created, sizeof record->created);
  record->reference_count = 1;
  for (size_t i = 0; is_whole && i < FLOOR_TEXT_COUNT; ++i)
    is_whole = (record->texts[i] = take_text(&bytes, &size)) != NULL;
  if (is_whole) return record;
  floor_record_release(record);
  return NULL;
}
