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
  verifier[length] = '\0';
  sodium_memzero(pool, sizeof pool);
}

/* What is written so far; `end` becomes null when there is no room. */
struct writer {
  char* end;
  const char* limit;
};

static void append(struct writer* out, const char* text) {
  const size_t length = strlen(text);
  if (out->end == NULL) return;
  if ((size_t)(out->limit - out->end) < length) {
    out->end = NULL;
    return;
  }
  memcpy(out->end, text, length);
  out->end += length;
}

static void append_encoded(struct writer* out, const char* text) {
  static const char kHex[] = "0123456789ABCDEF";
  char* end = out->end;
  if (end == NULL) return;
  for (; *text; ++text) {
    const unsigned char c = (unsigned char)*text;
    if (out->limit - end < 3) {
      out->end = NULL;
      return;
    }
    if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
        c == '.' || c == '_' || c == '~') {
      *end++ = (char)c;
    } else {
      *end++ = '%';
      *end++ = kHex[c >> 4];
      *end++ = kHex[c & 15];
    }
  }
  out->end = end;
}

static void make_values(struct floor_attempt* attempt) {
  unsigned char bytes[STATE_BYTES];
  unsigned char digest[crypto_hash_sha256_BYTES];
  randombytes_buf(bytes, sizeof bytes);
  sodium_bin2base64(attempt->state, sizeof attempt->state, bytes, sizeof bytes,
                    sodium_base64_VARIANT_ORIGINAL);
  make_verifier(attempt->verifier);
  crypto_hash_sha256(digest, (const unsigned char*)attempt->verifier, VERIFIER_LENGTH);
  sodium_bin2base64(attempt->challenge, sizeof attempt->challenge, digest, sizeof digest,
                    sodium_base64_VARIANT_URLSAFE_NO_PADDING);
}

size_t floor_authorization_url(const char* endpoint, const char* client_id,
                               const char* redirect_uri, const char* scope,
                               struct floor_attempt* attempt) {
  struct writer out = {attempt->url, attempt->url + sizeof attempt->url - 1};
  make_values(attempt);
  append(&out, endpoint);
  append(&out, "?client_id=");
  append_encoded(&out, client_id);
  append(&out, "&redirect_uri=");
  append_encoded(&out, redirect_uri);
  append(&out, "&response_type=code&scope=");
  append_encoded(&out, scope);
  append(&out, "&code_challenge=");
  append(&out, attempt->challenge);
  append(&out, "&code_challenge_method=S256&state=");
  append_encoded(&out, attempt->state);
  if (out.end == NULL) return 0;
  *out.end = '\0';
  return (size_t)(out.end - attempt->url);
}
