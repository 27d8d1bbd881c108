/* A thread that runs functions in order: what one hop from thread to thread costs in plain C. */
#ifndef FLOOR_SERIAL_QUEUE_H
#define FLOOR_SERIAL_QUEUE_H

#include <pthread.h>

struct floor_job {
  struct floor_job* next;
  void (*run)(struct floor_job*); /* frees the job */
};

struct floor_queue {
  pthread_mutex_t mutex;
  pthread_cond_t changed;
  pthread_t thread;
  struct floor_job* first;
  struct floor_job** end;
  int is_closed;
};

void floor_queue_open(struct floor_queue* queue);
void floor_queue_add(struct floor_queue* queue, struct floor_job* job);

/* Runs what is waiting and ends the thread. */
void floor_queue_close(struct floor_queue* queue);

#endif
