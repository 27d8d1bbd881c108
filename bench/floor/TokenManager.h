/* The token manager's work in plain C: a request queues its handler under the user's name, reads
   the stored record on one thread, decodes it on another and answers there; a record that is due is
   refreshed once for all who wait, and stored before they are answered. */
#ifndef FLOOR_TOKEN_MANAGER_H
#define FLOOR_TOKEN_MANAGER_H

#ifdef __cplusplus
extern "C" {
#endif

struct floor_manager;
struct floor_record;

/* Gets the access token, or null when there is none. */
typedef void (*floor_handler)(void* context, const char* access_token);

/* The server answers a refresh after `answer_delay` seconds, with the access token `answer`. */
struct floor_manager* floor_manager_open(double answer_delay, const char* answer);
void floor_manager_close(struct floor_manager* manager);

/* Stores a record that ends `expires_in` seconds from now. */
void floor_manager_store(struct floor_manager* manager, const char* user, const char* access_token,
                         const char* refresh_token, double expires_in);

/* The handler is called once, on the manager's thread. */
void floor_manager_request(struct floor_manager* manager, const char* user, floor_handler handler,
                           void* context);

/* Requests that the server has had. */
int floor_manager_refreshes(const struct floor_manager* manager);

#ifdef __cplusplus
}
#endif

#endif
