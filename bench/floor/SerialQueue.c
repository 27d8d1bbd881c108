#include "SerialQueue.h"

#include <stddef.h>
#include <stdlib.h>

static struct floor_job* next_job(struct floor_queue* queue) {
  struct floor_job* job;
  pthread_mutex_lock(&queue->mutex);
  while (queue->first == NULL && !queue->is_closed)
    pthread_cond_wait(&queue->changed, &queue->mutex);
  job = queue->first;
  if (job != NULL) queue->first = job->next;
  if (queue->first == NULL) queue->end = &queue->first;
  pthread_mutex_unlock(&queue->mutex);
  return job;
}

static void* run_jobs(void* argument) {
  struct floor_queue* const queue = argument;
  struct floor_job* job;
  while ((job = next_job(queue)) != NULL)
    job->run(job);
  return NULL;
}

void floor_queue_open(struct floor_queue* queue) {
  queue->first = NULL;
  queue->end = &queue->first;
  queue->is_closed = 0;
  pthread_mutex_init(&queue->mutex, NULL);
  pthread_cond_init(&queue->changed, NULL);
  if (pthread_create(&queue->thread, NULL, run_jobs, queue) != 0) abort();
}

void floor_queue_add(struct floor_queue* queue, struct floor_job* job) {
  job->next = NULL;
  pthread_mutex_lock(&queue->mutex);
  *queue->end = job;
  queue->end = &job->next;
  pthread_mutex_unlock(&queue->mutex);
  pthread_cond_signal(&queue->changed);
}

void floor_queue_close(struct floor_queue* queue) {
  pthread_mutex_lock(&queue->mutex);
  queue->is_closed = 1;
  pthread_mutex_unlock(&queue->mutex);
  pthread_cond_signal(&queue->changed);
  pthread_join(queue->thread, NULL);
  pthread_cond_destroy(&queue->changed);
  pthread_mutex_destroy(&queue->mutex);
}
