#include "Refresh.h"

#include <curl/curl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "Floor.h"

enum { LARGEST_BODY = 1 << 20, LARGEST_FORM = 8192 };

struct floor_client {
  CURL* curl;
  struct curl_slist* form_headers;
  struct curl_slist* fetch_headers;
  char* body;
  size_t size;
  size_t capacity;
};

static size_t take_body(const char* bytes, size_t size, size_t count, void* context) {
  struct floor_client* client = context;
  const size_t added = size * count;
  if (added > LARGEST_BODY - client->size) return 0;
  if (client->size + added > client->capacity) {
    const size_t wanted = 2 * (client->size + added);
    char* larger = realloc(client->body, wanted);
    if (larger == NULL) return 0;
    client->body = larger;
    client->capacity = wanted;
  }
  memcpy(client->body + client->size, bytes, added);
  client->size += added;
  return added;
}

static struct curl_slist* lines(const char* const* all) {
  struct curl_slist* list = NULL;
  for (; *all != NULL; ++all)
    list = curl_slist_append(list, *all);
  return list;
}

struct floor_client* floor_client_open(const char* trust_file, int resumes) {
  static const char* const form[] = {
      "Accept: application/json", "Content-Type: application/x-www-form-urlencoded; charset=utf-8",
      "User-Agent: QVROAuth2Client/1.0", "Expect:", NULL};
  static const char* const fetch[] = {"User-Agent: QVROAuth2Client/1.0", "Accept:", NULL};
  if (curl_global_init(CURL_GLOBAL_DEFAULT) != CURLE_OK) return NULL;
  struct floor_client* client = calloc(1, sizeof *client);
  if (client == NULL || (client->curl = curl_easy_init()) == NULL) return NULL;
  CURL* curl = client->curl;
  client->form_headers = lines(form);
  client->fetch_headers = lines(fetch);
  curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(curl, CURLOPT_PATH_AS_IS, 1L);
  curl_easy_setopt(curl, CURLOPT_PROTOCOLS_STR, "http,https");
  curl_easy_setopt(curl, CURLOPT_HTTP_VERSION, (long)CURL_HTTP_VERSION_2TLS);
  curl_easy_setopt(curl, CURLOPT_ACCEPT_ENCODING, "");
  curl_easy_setopt(curl, CURLOPT_SSLVERSION, (long)CURL_SSLVERSION_TLSv1_2);
  curl_easy_setopt(curl, CURLOPT_SSL_VERIFYPEER, 1L);
  curl_easy_setopt(curl, CURLOPT_SSL_VERIFYHOST, 2L);
  curl_easy_setopt(curl, CURLOPT_SSL_SESSIONID_CACHE, resumes ? 1L : 0L);
  curl_easy_setopt(curl, CURLOPT_CAPATH, NULL);
  curl_easy_setopt(curl, CURLOPT_CAINFO, trust_file);
  curl_easy_setopt(curl, CURLOPT_TIMEOUT, 300L);
  curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, take_body);
  curl_easy_setopt(curl, CURLOPT_WRITEDATA, client);
  return client;
}

void floor_client_close(struct floor_client* client) {
  curl_easy_cleanup(client->curl);
  curl_slist_free_all(client->form_headers);
  curl_slist_free_all(client->fetch_headers);
  free(client->body);
  free(client);
}

/* Nonzero when the answer is there whole, with status 200. */
static int perform(struct floor_client* client, const char* url) {
  long status = 0;
  client->size = 0;
  return curl_easy_setopt(client->curl, CURLOPT_URL, url) == CURLE_OK &&
         curl_easy_perform(client->curl) == CURLE_OK &&
         curl_easy_getinfo(client->curl, CURLINFO_RESPONSE_CODE, &status) == CURLE_OK &&
         status == 200;
}

static int is_unreserved(unsigned char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
         c == '.' || c == '_' || c == '~';
}

/* Writes "name=value", the value percent-encoded. Answers the end; NULL when it does not fit. */
static char* add_field(char* out, const char* limit, const char* name, const char* value) {
  static const char kHex[] = "0123456789ABCDEF";
  const size_t length = strlen(name);
  if (out == NULL || (size_t)(limit - out) < length + 3 * strlen(value) + 3) return NULL;
  memcpy(out, name, length);
  out += length;
  for (; *value != '\0'; ++value) {
    const unsigned char c = (unsigned char)*value;
    if (is_unreserved(c)) {
      *out++ = (char)c;
    } else {
      *out++ = '%';
      *out++ = kHex[c >> 4];
      *out++ = kHex[c & 15];
    }
  }
  return out;
}

size_t floor_refresh(struct floor_client* client, const char* url, const char* client_id,
                     const char* client_secret, const char* refresh_token) {
  char form[LARGEST_FORM];
  const char* const limit = form + sizeof form;
  char* end = add_field(form, limit, "client_id=", client_id);
  end = add_field(end, limit, "&client_secret=", client_secret);
  end = add_field(end, limit, "&refresh_token=", refresh_token);
  end = add_field(end, limit, "&grant_type=", "refresh_token");
  if (end == NULL) return 0;
  curl_easy_setopt(client->curl, CURLOPT_HTTPHEADER, client->form_headers);
  curl_easy_setopt(client->curl, CURLOPT_POSTFIELDSIZE, (long)(end - form));
  curl_easy_setopt(client->curl, CURLOPT_POSTFIELDS, form);
  if (!perform(client, url)) return 0;
  return floor_token_response(client->body, client->size);
}

size_t floor_fetch(struct floor_client* client, const char* url) {
  curl_easy_setopt(client->curl, CURLOPT_HTTPHEADER, client->fetch_headers);
  curl_easy_setopt(client->curl, CURLOPT_HTTPGET, 1L);
  return perform(client, url) ? client->size : 0;
}
