/* Prints the access token of an account out of the desktop's keyring:
   floor_token_from_secret_service SERVICE ACCOUNT
   Refuses what the keychain refuses: a locked keyring, a value of another program, a damaged one.
 */
#include <sodium.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "bench/floor/Keyring.c" /* as a source, since a floor is linked with nothing of others */
#include "bench/floor/programs/stored_token.h"

enum { kLargestValue = 2 << 20, kChecksum = 4, kHead = sizeof "QVR1:01234567:" - 1 };

static void fail(const char* what) {
  fprintf(stderr, "%s\n", what);
  exit(1);
}

/* The bytes of a value: the mark and the beginning of their SHA-256 in hex, then they in base64. */
static unsigned char* decode(const unsigned char* value, size_t size, size_t* data_size) {
  unsigned char hash[crypto_hash_sha256_BYTES];
  char head[kHead + 1] = "QVR1:";
  if (size < kHead) fail("value");
  unsigned char* const data = malloc(size);
  if (data == NULL) fail("memory");
  if (sodium_base642bin(data, size, (const char*)value + kHead, size - kHead, NULL, data_size, NULL,
                        sodium_base64_VARIANT_ORIGINAL) != 0) {
    fail("value");
  }
  crypto_hash_sha256(hash, data, *data_size);
  sodium_bin2hex(head + 5, 2 * kChecksum + 1, hash, kChecksum);
  head[kHead - 1] = ':';
  if (memcmp(value, head, kHead) != 0) fail("value");
  return data;
}

static void print_line(const unsigned char* text, size_t length) {
  if (fwrite(text, 1, length, stdout) != length || putchar('\n') == EOF || fflush(stdout) != 0)
    fail("output");
}

int main(int argc, char** argv) {
  if (argc != 3) fail("arguments");
  struct floor_keyring keyring;
  if (!floor_keyring_open(&keyring, NULL)) fail("no keyring");
  unsigned char* const value = malloc(kLargestValue);
  if (value == NULL) fail("memory");
  const long size = floor_keyring_read(&keyring, argv[1], argv[2], value, kLargestValue);
  if (size < 0) fail("no item");
  size_t data_size, length;
  const unsigned char* token;
  unsigned char* const data = decode(value, (size_t)size, &data_size);
  if (!fresh_access_token(data, data_size, &token, &length)) fail("no fresh token");
  print_line(token, length);
  sodium_memzero(value, (size_t)size);
  sodium_memzero(data, data_size);
  return 0;
}
