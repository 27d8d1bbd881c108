#include "Table.h"

#include <stdlib.h>
#include <string.h>

enum { FIRST_SLOT_COUNT = 16 };

static uint64_t hash_of(const char* name) { /* FNV-1a */
  uint64_t hash = 14695981039346656037u;
  for (; *name != '\0'; ++name)
    hash = (hash ^ (unsigned char)*name) * 1099511628211u;
  return hash;
}

static struct floor_entry** place_of(const struct floor_table* table, const char* name) {
  const uint64_t hash = hash_of(name);
  struct floor_entry** place = &table->slots[hash & (table->slot_count - 1)];
  while (*place != NULL && ((*place)->hash != hash || strcmp((*place)->name, name) != 0))
    place = &(*place)->next;
  return place;
}

static void put(struct floor_table* table, struct floor_entry* entry) {
  struct floor_entry** const slot = &table->slots[entry->hash & (table->slot_count - 1)];
  entry->next = *slot;
  *slot = entry;
}

static void grow(struct floor_table* table) {
  struct floor_entry** const old = table->slots;
  const size_t old_count = table->slot_count;
  table->slot_count = old_count == 0 ? FIRST_SLOT_COUNT : 2 * old_count;
  table->slots = calloc(table->slot_count, sizeof *table->slots);
  if (table->slots == NULL) abort();
  for (size_t slot = 0; slot < old_count; ++slot) {
    struct floor_entry* entry = old[slot];
    while (entry != NULL) {
      struct floor_entry* const next = entry->next;
      put(table, entry);
      entry = next;
    }
  }
  free(old);
}

struct floor_entry* floor_table_find(const struct floor_table* table, const char* name) {
  return table->count == 0 ? NULL : *place_of(table, name);
}

void floor_table_add(struct floor_table* table, struct floor_entry* entry) {
  if (table->count == table->slot_count) grow(table);
  entry->hash = hash_of(entry->name);
  put(table, entry);
  ++table->count;
}

static struct floor_entry* unlink_entry(struct floor_table* table, struct floor_entry** place) {
  struct floor_entry* const entry = *place;
  *place = entry->next;
  --table->count;
  return entry;
}

struct floor_entry* floor_table_remove(struct floor_table* table, const char* name) {
  struct floor_entry** const place = table->count == 0 ? NULL : place_of(table, name);
  return place == NULL || *place == NULL ? NULL : unlink_entry(table, place);
}

struct floor_entry* floor_table_take(struct floor_table* table) {
  for (size_t slot = 0; table->count != 0 && slot < table->slot_count; ++slot)
    if (table->slots[slot] != NULL) return unlink_entry(table, &table->slots[slot]);
  free(table->slots);
  memset(table, 0, sizeof *table);
  return NULL;
}
