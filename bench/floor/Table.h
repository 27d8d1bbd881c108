/* A hash table from names to whatever a struct holds that begins with an entry. */
#ifndef FLOOR_TABLE_H
#define FLOOR_TABLE_H

#include <stddef.h>
#include <stdint.h>

struct floor_entry {
  struct floor_entry* next;
  uint64_t hash;
  char* name;
};

struct floor_table {
  struct floor_entry** slots;
  size_t slot_count; /* a power of two */
  size_t count;
};

/* A table of no entries is all zero. Entries are the caller's: made by malloc, their names too. */
struct floor_entry* floor_table_find(const struct floor_table* table, const char* name);
void floor_table_add(struct floor_table* table, struct floor_entry* entry);
struct floor_entry* floor_table_remove(struct floor_table* table, const char* name);

/* Removes any entry; null when none is left, and then the table's own memory is free. */
struct floor_entry* floor_table_take(struct floor_table* table);

#endif
