/* Prints the access token of an account out of the encrypted file keychain:
   floor_token_from_file FOLDER KEY_FOLDER KEY SERVICE ACCOUNT
   Refuses what the keychain refuses: a folder or key that is open to others, symbolic links, a
   damaged header, the wrong key, a damaged item. */
#include <errno.h>
#include <fcntl.h>
#include <sodium.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "bench/floor/programs/stored_token.h"

enum { kKey = 32, kHash = 32, kHeader = 44 + 2 * kHash, kLargestItem = 1 << 20 };

static void fail(const char* what) {
  fprintf(stderr, "%s\n", what);
  exit(1);
}

static int open_in(int folder, const char* name, int flags, struct stat* status) {
  const int file = openat(folder, name, O_RDONLY | O_NOFOLLOW | O_CLOEXEC | flags);
  if (file < 0 || fstat(file, status) != 0) fail(name);
  return file;
}

static void check_private(const struct stat* status, const char* name) {
  if (status->st_uid != geteuid() || (status->st_mode & 077) != 0) fail(name);
}

static int open_private_folder(const char* path) {
  struct stat status;
  const int folder = open_in(AT_FDCWD, path, O_DIRECTORY, &status);
  check_private(&status, path);
  return folder;
}

/* At most `size` bytes. */
static size_t read_all(int file, unsigned char* bytes, size_t size) {
  size_t filled = 0;
  while (filled < size) {
    const ssize_t count = read(file, bytes + filled, size - filled);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) fail("read");
    if (count == 0) break;
    filled += (size_t)count;
  }
  close(file);
  return filled;
}

static void read_key(const char* folder_path, const char* name, unsigned char* key) {
  struct stat status;
  const int folder = open_private_folder(folder_path);
  const int file = open_in(folder, name, O_NONBLOCK, &status);
  check_private(&status, name);
  if (!S_ISREG(status.st_mode) || status.st_size != kKey) fail(name);
  if (read_all(file, key, kKey) != kKey) fail(name);
  close(folder);
}

/* The header says how the key is kept (1: in a file), and whether it is this one. */
static void check_header(int folder, const unsigned char* key) {
  struct stat status;
  unsigned char header[kHeader + 1], hash[kHash];
  const int file = open_in(folder, "keychain-header", O_NONBLOCK, &status);
  if (!S_ISREG(status.st_mode) || read_all(file, header, sizeof header) != kHeader) fail("header");
  crypto_generichash(hash, kHash, header, kHeader - kHash, NULL, 0);
  if (sodium_memcmp(hash, header + kHeader - kHash, kHash) != 0) fail("header");
  if (memcmp(header, "QVRKCS01\1\0\0\0", 12) != 0) fail("header");
  crypto_generichash(hash, kHash, header, kHeader - 2 * kHash, key, kKey);
  if (sodium_memcmp(hash, header + kHeader - 2 * kHash, kHash) != 0) fail("wrong key");
}

/* Service and account, as they are hashed for the file's name and bound to the data. */
static size_t encode_name(const char* service, const char* account, unsigned char* name) {
  const size_t service_size = strlen(service), account_size = strlen(account);
  if (service_size > 1000 || account_size > 1000) fail("name");
  for (int i = 0; i < 4; ++i)
    name[i] = (unsigned char)(service_size >> (8 * i));
  memcpy(name + 4, service, service_size);
  memcpy(name + 4 + service_size, account, account_size);
  return 4 + service_size + account_size;
}

static unsigned char* read_item(int folder, const unsigned char* naming_key,
                                const unsigned char* name, size_t name_size, size_t* size) {
  struct stat status;
  unsigned char hash[kHash];
  char file_name[2 * kHash + sizeof ".item"];
  crypto_generichash(hash, kHash, name, name_size, naming_key, kKey);
  sodium_bin2hex(file_name, 2 * kHash + 1, hash, kHash);
  strcat(file_name, ".item");
  const int file = open_in(folder, file_name, O_NONBLOCK, &status);
  if (!S_ISREG(status.st_mode) || status.st_size > kLargestItem) fail("item");
  unsigned char* const item = malloc((size_t)status.st_size + 1);
  if (item == NULL) fail("memory");
  *size = read_all(file, item, (size_t)status.st_size);
  return item;
}

/* The item's data, which is bound to everything before it and to the name. */
static unsigned char* unseal(const unsigned char* key, const unsigned char* item, size_t size,
                             const unsigned char* name, size_t name_size, size_t* data_size) {
  enum { kBefore = 12, kNonce = crypto_aead_xchacha20poly1305_ietf_NPUBBYTES };
  if (size < kBefore || memcmp(item, "QVRKCI01", 8) != 0) fail("item");
  const size_t name_box =
      item[8] | (size_t)item[9] << 8 | (size_t)item[10] << 16 | (size_t)item[11] << 24;
  if (name_box > size - kBefore) fail("item");
  const size_t start = kBefore + name_box;
  if (size - start < kNonce + crypto_aead_xchacha20poly1305_ietf_ABYTES) fail("item");
  unsigned char* const bound = malloc(start + name_size);
  unsigned char* const data = malloc(size);
  if (bound == NULL || data == NULL) fail("memory");
  memcpy(bound, item, start);
  memcpy(bound + start, name, name_size);
  unsigned long long length = 0;
  if (crypto_aead_xchacha20poly1305_ietf_decrypt(data, &length, NULL, item + start + kNonce,
                                                 size - start - kNonce, bound, start + name_size,
                                                 item + start, key) != 0) {
    fail("item");
  }
  *data_size = length;
  free(bound);
  return data;
}

static void print_line(const unsigned char* text, size_t length) {
  if (fwrite(text, 1, length, stdout) != length || putchar('\n') == EOF || fflush(stdout) != 0)
    fail("output");
}

int main(int argc, char** argv) {
  if (argc != 6) fail("arguments");
  if (sodium_init() < 0) fail("sodium");
  unsigned char* const keys = sodium_malloc(3 * kKey); /* master, sealing, naming */
  if (keys == NULL) fail("memory");
  const int folder = open_private_folder(argv[1]);
  read_key(argv[2], argv[3], keys);
  check_header(folder, keys);
  crypto_kdf_derive_from_key(keys + kKey, kKey, 1, "qvrkeych", keys);
  crypto_kdf_derive_from_key(keys + 2 * kKey, kKey, 2, "qvrkeych", keys);

  unsigned char name[2004];
  size_t size, data_size, length;
  const unsigned char* token;
  const size_t name_size = encode_name(argv[4], argv[5], name);
  unsigned char* const item = read_item(folder, keys + 2 * kKey, name, name_size, &size);
  unsigned char* const data = unseal(keys + kKey, item, size, name, name_size, &data_size);
  if (!fresh_access_token(data, data_size, &token, &length)) fail("no fresh token");
  print_line(token, length);
  sodium_memzero(data, data_size);
  sodium_free(keys);
  return 0;
}
