/* What the machine allows: the work of the library's operations, done by hand. A ratio to it says
   more than a time, since it is measured in the same run. */
#ifndef QVR_BENCH_FLOOR_H
#define QVR_BENCH_FLOOR_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Writes a complete authorization URL (RFC 6749 section 4.1.1, RFC 7636 section 4.3) with a new
   state of 32 bytes and a new code verifier of 128 characters. Answers its length. */
size_t floor_authorization_url(const char* endpoint, const char* client_id,
                               const char* redirect_uri, const char* scope, char* out);

/* Parses a token response and looks up its members. Answers the length of all of them. */
size_t floor_token_response(const char* json, size_t size);

#ifdef __cplusplus
}
#endif

#endif
