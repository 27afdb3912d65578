/*
 * Ostrel from C: start, record events, log a user in by e-mail, flush, stop.
 *
 *   ostrel_example EMAIL PASSWORD
 *
 * The deployment comes from the environment (OSTREL_SERVICE_DOMAIN,
 * OSTREL_CONNECT_TO, OSTREL_CA_FILE), as for any test or staging host, and
 * the storage folder from OSTREL_STORAGE_DIR. Exits 0 when every step worked.
 */
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>

#include "ostrel/ostrel_c.h"

/* An asynchronous outcome the main thread waits for: library callbacks run on
 * the library's threads. */
typedef struct {
  pthread_mutex_t mutex;
  pthread_cond_t cond;
  int done;
  ostrel_error_t* error; /* a copy: the callback's own is only borrowed */
} waiter_t;

static void waiter_init(waiter_t* w) {
  pthread_mutex_init(&w->mutex, NULL);
  pthread_cond_init(&w->cond, NULL);
  w->done = 0;
  w->error = NULL;
}

static void on_done(const ostrel_error_t* error, const char* result, void* user_data) {
  waiter_t* w = (waiter_t*)user_data;
  (void)result;
  pthread_mutex_lock(&w->mutex);
  w->error = ostrel_error_copy(error);
  w->done = 1;
  pthread_cond_signal(&w->cond);
  pthread_mutex_unlock(&w->mutex);
}

/* Answers the error the callback got (the caller frees it), NULL on success. */
static ostrel_error_t* waiter_wait(waiter_t* w) {
  ostrel_error_t* error;
  pthread_mutex_lock(&w->mutex);
  while (!w->done) pthread_cond_wait(&w->cond, &w->mutex);
  error = w->error;
  pthread_mutex_unlock(&w->mutex);
  pthread_cond_destroy(&w->cond);
  pthread_mutex_destroy(&w->mutex);
  return error;
}

static void on_log(const char* line, void* user_data) {
  (void)user_data;
  fprintf(stderr, "ostrel: %s\n", line);
}

/* Prints a failed step and frees its error (read only once the call that
 * fills it has returned). Answers 1 when the step worked. */
static int ok(ostrel_code_t code, ostrel_error_t** error, const char* step) {
  if (code == OSTREL_OK) return 1;
  fprintf(stderr, "%s failed (%d): %s\n", step, (int)code, ostrel_error_description(*error));
  ostrel_error_free(*error);
  *error = NULL;
  return 0;
}

static int record_events(ostrel_t* ostrel) {
  ostrel_error_t* error = NULL;
  return ok(ostrel_send_event(ostrel, "c_example_started", "{\"language\":\"C\",\"answer\":42}",
                              &error),
            &error, "send event") &&
         ok(ostrel_timed_event_start(ostrel, "c_loading", NULL, &error), &error, "timer start") &&
         ok(ostrel_timed_event_stop(ostrel, "c_loading", NULL, &error), &error, "timer stop") &&
         ok(ostrel_flow_begin(ostrel, "c_onboarding", NULL, &error), &error, "flow begin") &&
         ok(ostrel_flow_step(ostrel, "c_profile", NULL, &error), &error, "flow step") &&
         ok(ostrel_flow_succeed(ostrel, "done", NULL, &error), &error, "flow succeed") &&
         ok(ostrel_rank_content(ostrel, "article-7", OSTREL_RANKING_SOCIAL, 2.0f, &error), &error,
            "rank content");
}

static int log_in(ostrel_t* ostrel, const char* email, const char* password) {
  ostrel_error_t* error = NULL;
  ostrel_login_t* login = NULL;
  waiter_t logged;
  char* token = NULL;
  if (!ok(ostrel_login_new(ostrel, &login, &error), &error, "login builder")) return 0;
  waiter_init(&logged);
  if (!ok(ostrel_login_set_email(login, email, &error), &error, "set e-mail") ||
      !ok(ostrel_login_set_password(login, password, &error), &error, "set password") ||
      !ok(ostrel_login_start(login, OSTREL_LOGIN_EMAIL, on_done, &logged, &error), &error,
          "login")) {
    ostrel_login_free(login);
    return 0;
  }
  ostrel_login_free(login); /* the flow keeps what it needs */
  error = waiter_wait(&logged);
  if (!ok(error ? OSTREL_ERROR : OSTREL_OK, &error, "login flow")) return 0;
  if (!ok(ostrel_get_user_token(ostrel, &token, &error), &error, "user token")) return 0;
  printf("logged in as %s\n", token);
  ostrel_string_free(token);
  return 1;
}

static int flush(ostrel_t* ostrel) {
  ostrel_error_t* error = NULL;
  waiter_t flushed;
  waiter_init(&flushed);
  if (!ok(ostrel_flush(ostrel, on_done, &flushed, &error), &error, "flush")) return 0;
  error = waiter_wait(&flushed);
  return ok(error ? OSTREL_ERROR : OSTREL_OK, &error, "flush");
}

int main(int argc, char** argv) {
  ostrel_config_t* config;
  ostrel_t* ostrel = NULL;
  ostrel_error_t* error = NULL;
  int logged = 0;
  int worked;
  if (argc != 3) {
    fprintf(stderr, "usage: ostrel_example EMAIL PASSWORD\n");
    return 2;
  }
  printf("Ostrel %s, C API %d\n", ostrel_version_string(), ostrel_c_api_version());

  config = ostrel_config_new();
  if (!config || !ok(ostrel_config_set_secret(config, "demo-secret", &error), &error, "secret") ||
      !ok(ostrel_config_use_environment_deployment(config, 1, &error), &error, "deployment") ||
      !ok(ostrel_config_set_app_identity(config, "io.ostrel.example.c", "1.0", "1", &error), &error,
          "app identity") ||
      !ok(ostrel_config_set_log_callback(config, on_log, NULL, &error), &error, "log") ||
      !ok(ostrel_start(config, &ostrel, &error), &error, "start")) {
    ostrel_config_free(config);
    return 1;
  }
  ostrel_config_free(config); /* the instance keeps what it needs */

  worked =
      record_events(ostrel) && log_in(ostrel, argv[1], argv[2]) &&
      ok(ostrel_is_user_logged(ostrel, &logged, &error), &error, "logged state") &&
      ok(ostrel_send_event(ostrel, "c_example_logged_in", NULL, &error), &error, "send event") &&
      flush(ostrel);
  printf("user logged: %s, events flushed: %s\n", logged ? "yes" : "no", worked ? "yes" : "no");

  if (!ok(ostrel_shutdown(ostrel, 1000, &error), &error, "shutdown")) worked = 0;
  /* After the shutdown the analytics calls are refused, never lost silently. */
  if (ostrel_send_event(ostrel, "too_late", NULL, &error) == OSTREL_ERROR) {
    printf("after shutdown: %s\n", ostrel_error_code(error));
  } else {
    worked = 0;
  }
  ostrel_error_free(error);
  ostrel_free(ostrel);
  return worked && logged ? 0 : 1;
}
