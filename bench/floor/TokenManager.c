#include "TokenManager.h"

#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "Record.h"
#include "SerialQueue.h"
#include "Table.h"

struct stored_item {
  struct floor_entry entry;
  unsigned char* bytes;
  size_t size;
};

struct waiting {
  floor_handler handler;
  void* context;
};

struct waiting_list {
  struct floor_entry entry;
  struct waiting* requests;
  size_t count;
  size_t room;
};

struct floor_manager {
  struct floor_queue work_queue;
  struct floor_queue delegate_queue;
  struct floor_queue session_queue;
  pthread_mutex_t items_mutex;
  struct floor_table items;
  pthread_mutex_t waiting_mutex;
  struct floor_table waiting;
  pthread_mutex_t refreshes_mutex;
  struct floor_table refreshes;
  int refresh_count;
  double answer_delay;
  char* answer;
};

/* What a request carries from thread to thread. */
struct request {
  struct floor_job job;
  struct floor_manager* manager;
  char* user;
  unsigned char* bytes;
  size_t size;
  struct floor_record* record;
  struct timespec answer_time;
};

static struct floor_entry* make_entry(size_t size, const char* name) {
  struct floor_entry* const entry = calloc(1, size);
  entry->name = strdup(name);
  return entry;
}

static void free_entry(struct floor_entry* entry) {
  if (entry == NULL) return;
  free(entry->name);
  free(entry);
}

static struct request* make_request(struct floor_manager* manager, const char* user) {
  struct request* const request = calloc(1, sizeof *request);
  request->manager = manager;
  request->user = strdup(user);
  return request;
}

static void free_request(struct request* request) {
  floor_record_release(request->record);
  free(request->bytes);
  free(request->user);
  free(request);
}

static void send(struct request* request, struct floor_queue* queue,
                 void (*run)(struct floor_job*)) {
  request->job.run = run;
  floor_queue_add(queue, &request->job);
}

/* The stored items. */

static void read_item(struct request* request) {
  struct floor_manager* const manager = request->manager;
  pthread_mutex_lock(&manager->items_mutex);
  const struct stored_item* const item =
      (struct stored_item*)floor_table_find(&manager->items, request->user);
  if (item != NULL) {
    request->bytes = malloc(item->size);
    request->size = item->size;
    memcpy(request->bytes, item->bytes, item->size);
  }
  pthread_mutex_unlock(&manager->items_mutex);
}

static void write_item(struct floor_manager* manager, const char* user,
                       const struct floor_record* record) {
  size_t size;
  unsigned char* const bytes = floor_record_write(record, &size);
  pthread_mutex_lock(&manager->items_mutex);
  struct stored_item* item = (struct stored_item*)floor_table_find(&manager->items, user);
  if (item == NULL) {
    item = (struct stored_item*)make_entry(sizeof *item, user);
    floor_table_add(&manager->items, &item->entry);
  }
  free(item->bytes);
  item->bytes = bytes;
  item->size = size;
  pthread_mutex_unlock(&manager->items_mutex);
}

/* Those who wait. */

static void add_waiting(struct floor_manager* manager, const char* user, struct waiting waiting) {
  pthread_mutex_lock(&manager->waiting_mutex);
  struct waiting_list* list = (struct waiting_list*)floor_table_find(&manager->waiting, user);
  if (list == NULL) {
    list = (struct waiting_list*)make_entry(sizeof *list, user);
    floor_table_add(&manager->waiting, &list->entry);
  }
  if (list->count == list->room) {
    list->room = list->room == 0 ? 1 : 2 * list->room;
    list->requests = realloc(list->requests, list->room * sizeof *list->requests);
  }
  list->requests[list->count++] = waiting;
  pthread_mutex_unlock(&manager->waiting_mutex);
}

static void remove_refresh(struct floor_manager* manager, const char* user) {
  pthread_mutex_lock(&manager->refreshes_mutex);
  struct floor_entry* const refresh = floor_table_remove(&manager->refreshes, user);
  pthread_mutex_unlock(&manager->refreshes_mutex);
  free_entry(refresh);
}

static void answer_all(struct request* request) {
  struct floor_manager* const manager = request->manager;
  const struct floor_record* const record = request->record;
  remove_refresh(manager, request->user);
  pthread_mutex_lock(&manager->waiting_mutex);
  struct waiting_list* const list =
      (struct waiting_list*)floor_table_remove(&manager->waiting, request->user);
  pthread_mutex_unlock(&manager->waiting_mutex);
  for (size_t i = 0; list != NULL && i < list->count; ++i)
    list->requests[i].handler(list->requests[i].context,
                              record == NULL ? NULL : record->texts[FLOOR_ACCESS_TOKEN]);
  if (list != NULL) free(list->requests);
  free_entry((struct floor_entry*)list);
  free_request(request);
}

/* The steps of a request, each on its thread. */

static void deliver_stored(struct floor_job* job) {
  answer_all((struct request*)job);
}

static void store(struct floor_job* job) {
  struct request* const request = (struct request*)job;
  write_item(request->manager, request->user, request->record);
  send(request, &request->manager->delegate_queue, deliver_stored);
}

static struct floor_record* answered_record(const struct floor_manager* manager,
                                            const struct floor_record* old) {
  const char* texts[FLOOR_TEXT_COUNT];
  memcpy(texts, old->texts, sizeof texts);
  texts[FLOOR_ACCESS_TOKEN] = manager->answer;
  return floor_record_make(texts, 3600);
}

static void server_answers(struct floor_job* job) {
  struct request* const request = (struct request*)job;
  struct floor_record* const old = request->record;
  while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &request->answer_time, NULL) != 0)
    continue;
  request->record = answered_record(request->manager, old);
  floor_record_release(old);
  send(request, &request->manager->work_queue, store);
}

static void start_refresh(struct request* request) {
  const double delay = request->manager->answer_delay;
  clock_gettime(CLOCK_MONOTONIC, &request->answer_time);
  request->answer_time.tv_nsec += (long)(delay * 1e9);
  request->answer_time.tv_sec += request->answer_time.tv_nsec / 1000000000;
  request->answer_time.tv_nsec %= 1000000000;
  ++request->manager->refresh_count;
  send(request, &request->manager->session_queue, server_answers);
}

/* Whether this request is the one that refreshes. */
static int registers_refresh(struct floor_manager* manager, const char* user) {
  pthread_mutex_lock(&manager->refreshes_mutex);
  const int is_first = floor_table_find(&manager->refreshes, user) == NULL;
  if (is_first) floor_table_add(&manager->refreshes, make_entry(sizeof(struct floor_entry), user));
  pthread_mutex_unlock(&manager->refreshes_mutex);
  return is_first;
}

static void deliver_read(struct floor_job* job) {
  struct request* const request = (struct request*)job;
  if (request->bytes != NULL) request->record = floor_record_read(request->bytes, request->size);
  if (request->record == NULL || !floor_record_is_due(request->record)) {
    answer_all(request);
  } else if (registers_refresh(request->manager, request->user)) {
    start_refresh(request);
  } else {
    free_request(request);
  }
}

static void read_stored(struct floor_job* job) {
  struct request* const request = (struct request*)job;
  read_item(request);
  send(request, &request->manager->delegate_queue, deliver_read);
}

void floor_manager_request(struct floor_manager* manager, const char* user, floor_handler handler,
                           void* context) {
  add_waiting(manager, user, (struct waiting){handler, context});
  send(make_request(manager, user), &manager->work_queue, read_stored);
}

struct floor_manager* floor_manager_open(double answer_delay, const char* answer) {
  struct floor_manager* const manager = calloc(1, sizeof *manager);
  manager->answer_delay = answer_delay;
  manager->answer = strdup(answer);
  pthread_mutex_init(&manager->items_mutex, NULL);
  pthread_mutex_init(&manager->waiting_mutex, NULL);
  pthread_mutex_init(&manager->refreshes_mutex, NULL);
  floor_queue_open(&manager->work_queue);
  floor_queue_open(&manager->delegate_queue);
  floor_queue_open(&manager->session_queue);
  return manager;
}

void floor_manager_close(struct floor_manager* manager) {
  struct stored_item* item;
  floor_queue_close(&manager->session_queue);
  floor_queue_close(&manager->work_queue);
  floor_queue_close(&manager->delegate_queue);
  while ((item = (struct stored_item*)floor_table_take(&manager->items)) != NULL) {
    free(item->bytes);
    free_entry(&item->entry);
  }
  (void)floor_table_take(&manager->waiting);   /* empty: all were answered, */
  (void)floor_table_take(&manager->refreshes); /* and no refresh is left */
  free(manager->answer);
  free(manager);
}

void floor_manager_store(struct floor_manager* manager, const char* user, const char* access_token,
                         const char* refresh_token, double expires_in) {
  const char* const texts[FLOOR_TEXT_COUNT] = {
      access_token, "Bearer", refresh_token, "email", "https://mail.google.com/", "openid"};
  struct floor_record* const record = floor_record_make(texts, expires_in);
  write_item(manager, user, record);
  floor_record_release(record);
}

int floor_manager_refreshes(const struct floor_manager* manager) {
  return manager->refresh_count;
}
