/* What the machine allows: the work of the library's operations, done by hand. A ratio to it says
   more than a time, since it is measured in the same run. */
#ifndef QVR_BENCH_FLOOR_H
#define QVR_BENCH_FLOOR_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/* An authorization attempt. The verifier goes into the code exchange, the state is compared with
   the redirect's. */
struct floor_attempt {
  char state[45];
  char verifier[129];
  char challenge[44];
  char url[2048];
};

/* Makes an attempt with a new state of 32 bytes, a new code verifier, its S256 challenge and the
   complete authorization URL (RFC 6749 section 4.1.1, RFC 7636 section 4.3). Answers the URL's
   length, or 0 when it does not fit. */
size_t floor_authorization_url(const char* endpoint, const char* client_id,
                               const char* redirect_uri, const char* scope,
                               struct floor_attempt* attempt);

/* Parses a token response and looks up its members. Answers the length of all of them. */
size_t floor_token_response(const char* json, size_t size);

#ifdef __cplusplus
}
#endif

#endif
