/* An HTTPS client by plain libcurl: one easy handle that stays open, on the calling thread. */
#ifndef QVR_BENCH_REFRESH_H
#define QVR_BENCH_REFRESH_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

struct floor_client;

/* NULL when libcurl cannot be used. With `resumes`, a fresh connection resumes the TLS session of
   an earlier one (RFC 8446 section 2.2); else each one makes a full handshake. */
struct floor_client* floor_client_open(const char* trust_file, int resumes);
void floor_client_close(struct floor_client* client);

/* Refreshes an access token (RFC 6749 section 6): builds the form, sends it, and parses the answer.
   Answers the length of the answer's members; 0 when it failed. */
size_t floor_refresh(struct floor_client* client, const char* url, const char* client_id,
                     const char* client_secret, const char* refresh_token);

/* Fetches a body into memory. Answers its size; 0 when it failed. */
size_t floor_fetch(struct floor_client* client, const char* url);

#ifdef __cplusplus
}
#endif

#endif
