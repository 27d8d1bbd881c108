/* The keyed archive of a token (src/platform/KeyedArchiveFormat.h), written and read by hand. */
#ifndef QVR_BENCH_ARCHIVE_H
#define QVR_BENCH_ARCHIVE_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

enum { FLOOR_SCOPES = 16 };

struct floor_token {
  char* access_token;
  char* token_type;
  char* refresh_token;
  char* scopes[FLOOR_SCOPES]; /* sorted */
  size_t scope_count;
  long long expires_in;
  double creation_date;
};

/* Whether the text can be written as it is. */
int floor_is_ascii(const void* text, size_t length);

/* Writes the archive into memory of its own, to be freed. Answers its length; 0 for text that is
   not ASCII or a date that is not finite. */
size_t floor_archive_write(const struct floor_token* token, unsigned char** archive);

/* Reads what is needed, and checks what it reads; the texts are copies. Answers whether the archive
   holds a whole token. Either way the token is to be given to floor_token_clear(). */
int floor_archive_read(const unsigned char* archive, size_t length, struct floor_token* token);

void floor_token_clear(struct floor_token* token);

#ifdef __cplusplus
}
#endif

#endif
