#include <sodium.h>
#include <string.h>

#include "Floor.h"

enum { STATE_BYTES = 32, VERIFIER_LENGTH = 128, POOL = 256 };

static const char kUnreserved[] =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~";

/* Bytes of 198 and above would make some characters likelier than others. */
static void make_verifier(char* verifier) {
  unsigned char pool[POOL];
  size_t length = 0;
  while (length < VERIFIER_LENGTH) {
    randombytes_buf(pool, sizeof pool);
    for (size_t i = 0; i < sizeof pool && length < VERIFIER_LENGTH; ++i)
      if (pool[i] < 198) verifier[length++] = kUnreserved[pool[i] % 66];
  }
}

static char* append(char* out, const char* text) {
  const size_t length = strlen(text);
  memcpy(out, text, length);
  return out + length;
}

static char* append_encoded(char* out, const char* text) {
  static const char kHex[] = "0123456789ABCDEF";
  for (; *text; ++text) {
    const unsigned char c = (unsigned char)*text;
    if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
        c == '.' || c == '_' || c == '~') {
      *out++ = (char)c;
    } else {
      *out++ = '%';
      *out++ = kHex[c >> 4];
      *out++ = kHex[c & 15];
    }
  }
  return out;
}

size_t floor_authorization_url(const char* endpoint, const char* client_id,
                               const char* redirect_uri, const char* scope, char* out) {
  unsigned char bytes[STATE_BYTES];
  unsigned char digest[crypto_hash_sha256_BYTES];
  char state[48], verifier[VERIFIER_LENGTH], challenge[48];
  randombytes_buf(bytes, sizeof bytes);
  sodium_bin2base64(state, sizeof state, bytes, sizeof bytes, sodium_base64_VARIANT_ORIGINAL);
  make_verifier(verifier);
  crypto_hash_sha256(digest, (const unsigned char*)verifier, sizeof verifier);
  sodium_bin2base64(challenge, sizeof challenge, digest, sizeof digest,
                    sodium_base64_VARIANT_URLSAFE_NO_PADDING);
  char* end = append(out, endpoint);
  end = append_encoded(append(end, "?client_id="), client_id);
  end = append_encoded(append(end, "&redirect_uri="), redirect_uri);
  end = append_encoded(append(end, "&response_type=code&scope="), scope);
  end = append(append(end, "&code_challenge="), challenge);
  end = append_encoded(append(end, "&code_challenge_method=S256&state="), state);
  *end = '\0';
  return (size_t)(end - out);
}
