/* The objects of a token's archive always come in the same order, and only the scopes differ in
   number, so that every object's number is known beforehand. */
#include <math.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include "Archive.h"

enum { OBJECTS = 51 + 2 * FLOOR_SCOPES, TRAILER = 32, SMALL_PARTS = 1024 };

struct writer {
  unsigned char* start;
  unsigned char* end;
  size_t offsets[OBJECTS];
  size_t count;
  int failed;
};

int floor_is_ascii(const void* text, size_t length) {
  const unsigned char* bytes = text;
  uint64_t seen = 0;
  for (; length >= sizeof seen; length -= sizeof seen, bytes += sizeof seen) {
    uint64_t word;
    memcpy(&word, bytes, sizeof word);
    seen |= word;
  }
  while (length-- > 0)
    seen |= *bytes++;
  return (seen & 0x8080808080808080) == 0;
}

static void put_number(struct writer* out, uint64_t value, int width) {
  while (width-- > 0)
    *out->end++ = (unsigned char)(value >> (8 * width));
}

static void begin(struct writer* out) {
  out->offsets[out->count++] = (size_t)(out->end - out->start);
}

static void put_integer(struct writer* out, uint64_t value) {
  const int exponent = value <= UINT8_MAX    ? 0
                       : value <= UINT16_MAX ? 1
                       : value <= UINT32_MAX ? 2
                                             : 3;
  *out->end++ = (unsigned char)(0x10 | exponent);
  put_number(out, value, 1 << exponent);
}

static void begin_of_length(struct writer* out, unsigned char type, size_t length) {
  begin(out);
  *out->end++ = (unsigned char)(type | (length < 15 ? length : 15));
  if (length >= 15) put_integer(out, length);
}

static void string(struct writer* out, const char* text) {
  const size_t length = strlen(text);
  if (!floor_is_ascii(text, length)) out->failed = 1;
  begin_of_length(out, 0x50, length);
  memcpy(out->end, text, length);
  out->end += length;
}

static void uid(struct writer* out, size_t number) {
  begin(out);
  *out->end++ = 0x80;
  *out->end++ = (unsigned char)number;
}

static void real(struct writer* out, double value) {
  uint64_t bits;
  memcpy(&bits, &value, sizeof bits);
  if (!isfinite(value)) out->failed = 1;
  begin(out);
  *out->end++ = 0x23;
  put_number(out, bits, 8);
}

static void reference(struct writer* out, size_t object) {
  *out->end++ = (unsigned char)object;
}

static void references(struct writer* out, size_t first, size_t count) {
  for (size_t i = 0; i < count; ++i)
    reference(out, first + i);
}

/* A dictionary of two entries. */
static void pair(struct writer* out, size_t key, size_t second_key, size_t value, size_t second) {
  begin_of_length(out, 0xD0, 2);
  reference(out, key);
  reference(out, second_key);
  reference(out, value);
  reference(out, second);
}

static void header(struct writer* out, size_t scopes) {
  static const char* const kKeys[] = {"$version", "$archiver", "$top", "$objects"};
  begin_of_length(out, 0xD0, 4);
  references(out, 1, 7);
  reference(out, 10);
  for (int i = 0; i < 4; ++i)
    string(out, kKeys[i]);
  begin(out);
  put_integer(out, 100000);
  string(out, "NSKeyedArchiver");
  begin_of_length(out, 0xD0, 1);
  references(out, 8, 2);
  string(out, "root");
  uid(out, 1);
  begin_of_length(out, 0xA0, 11 + scopes);
  references(out, 11, 2);
  references(out, 27, 5);
  references(out, 35 + scopes, scopes);
  reference(out, 35 + 2 * scopes);
  reference(out, 41 + 2 * scopes);
  reference(out, 45 + 2 * scopes);
  reference(out, 48 + 2 * scopes);
  string(out, "$null");
}

static void root(struct writer* out, const struct floor_token* token) {
  static const char* const kKeys[] = {
      "QVR.accessToken",   "QVR.tokenType",    "QVR.expiresIn", "QVR.refreshToken",
      "QVR.grantedScopes", "QVR.creationDate", "$class"};
  begin_of_length(out, 0xD0, 7);
  references(out, 13, 14);
  for (int i = 0; i < 7; ++i)
    string(out, kKeys[i]);
  for (size_t i = 2; i < 7; ++i)
    uid(out, i);
  uid(out, 8 + token->scope_count);
  uid(out, 10 + token->scope_count);
  string(out, token->access_token);
  string(out, token->token_type);
  begin(out);
  put_integer(out, (uint64_t)token->expires_in);
  string(out, token->refresh_token);
}

static void scopes_and_date(struct writer* out, const struct floor_token* token) {
  const size_t scopes = token->scope_count;
  const size_t last = 2 * scopes;
  pair(out, 32, 19, 33, 34 + scopes);
  string(out, "NS.objects");
  begin_of_length(out, 0xA0, scopes);
  references(out, 34, scopes);
  for (size_t i = 0; i <= scopes; ++i)
    uid(out, 7 + i);
  for (size_t i = 0; i < scopes; ++i)
    string(out, token->scopes[i]);
  pair(out, 36 + last, 37 + last, 38 + last, 39 + last);
  string(out, "$classes");
  string(out, "$classname");
  begin_of_length(out, 0xA0, 2);
  references(out, 39 + last, 2);
  string(out, "NSSet");
  string(out, "NSObject");
  pair(out, 42 + last, 19, 43 + last, 44 + last);
  string(out, "NS.time");
  real(out, token->creation_date);
  uid(out, 9 + scopes);
}

static void class_description(struct writer* out, const char* name, size_t scopes) {
  const size_t object = out->count;
  pair(out, 36 + 2 * scopes, 37 + 2 * scopes, object + 1, object + 2);
  begin_of_length(out, 0xA0, 2);
  reference(out, object + 2);
  reference(out, 40 + 2 * scopes);
  string(out, name);
}

static void tables(struct writer* out) {
  const uint64_t table = (uint64_t)(out->end - out->start);
  const int width = table <= UINT8_MAX ? 1 : table <= UINT16_MAX ? 2 : 4;
  for (size_t i = 0; i < out->count; ++i)
    put_number(out, out->offsets[i], width);
  put_number(out, 0, 6);
  *out->end++ = (unsigned char)width;
  *out->end++ = 1;
  put_number(out, out->count, 8);
  put_number(out, 0, 8);
  put_number(out, table, 8);
}

/* Enough for the texts, their headers, the fixed parts and the tables. */
static size_t room(const struct floor_token* token) {
  size_t length = strlen(token->access_token) + strlen(token->token_type) +
                  strlen(token->refresh_token) + SMALL_PARTS + 4 * OBJECTS + TRAILER;
  for (size_t i = 0; i < token->scope_count; ++i)
    length += strlen(token->scopes[i]) + 16;
  return length;
}

size_t floor_archive_write(const struct floor_token* token, unsigned char** archive) {
  struct writer out = {.count = 0, .failed = token->scope_count > FLOOR_SCOPES};
  *archive = NULL;
  if (out.failed) return 0;
  *archive = out.start = out.end = malloc(room(token));
  if (out.start == NULL) return 0;
  memcpy(out.end, "bplist00", 8);
  out.end += 8;
  header(&out, token->scope_count);
  root(&out, token);
  scopes_and_date(&out, token);
  class_description(&out, "NSDate", token->scope_count);
  class_description(&out, "QVROAuth2Token", token->scope_count);
  tables(&out);
  return out.failed ? 0 : (size_t)(out.end - out.start);
}
