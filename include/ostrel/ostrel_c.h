/*
 * Ostrel from C and every language that binds C (Python's ctypes, Rust, Go,
 * Swift, Kotlin/Native, game engines).
 *
 * Conventions that hold for every function below:
 *
 * Results. Every call that can fail returns an ostrel_code_t and takes, last,
 * an `ostrel_error_t** error`. On OSTREL_OK *error is set to NULL; on any
 * other code it receives a new error object (NULL only when memory ran out),
 * which the caller owns and frees with ostrel_error_free(). Pass NULL when the
 * details are not wanted. An error passed to a callback is borrowed: it is valid only
 * until the callback returns (ostrel_error_copy() keeps it).
 *
 * Texts. Every text, in and out, is NUL-terminated UTF-8; an input that is not
 * is refused with OSTREL_INVALID_ARGUMENT. The library copies every input it
 * keeps, so the caller's buffers may be freed when a call returns. A `char*`
 * handed out through an out-parameter belongs to the caller, who frees it with
 * ostrel_string_free(). A `const char*` handed to a callback or answered by an
 * accessor is borrowed: valid while the callback runs, or while the object it
 * came from lives. Free-form data (custom data, push payloads, error extras,
 * paying state) travels as JSON text.
 *
 * Handles. ostrel_config_t, ostrel_t and ostrel_login_t are opaque; each has a
 * constructor and a free function, and each free function accepts NULL.
 *
 * Threads. Calls on an ostrel_t may come from any thread, concurrently. A
 * config or a login builder is used by one thread at a time. Every callback
 * is a plain C function pointer with a `void* user_data` that the library
 * hands back untouched; the comment beside each call says on which thread it
 * runs. Callbacks run on the library's own threads unless said otherwise:
 * keep them short, return normally (no C++ exception, no longjmp), never
 * block them waiting for another callback of the library, and never call
 * ostrel_wait_until_persisted(), ostrel_shutdown() or ostrel_free() from one. Every other call of
 * this API may be made from a callback. A call that takes a one-shot callback and returns OSTREL_OK
 * runs that callback exactly once; one that returns an error never runs it. `user_data` must stay
 * valid until then. A one-shot callback runs on a network thread of the library, never on the
 * calling thread, also when the library answers without the network (a refusal such as a missing
 * login or a shut-down instance, a cached answer): a caller may hold its own lock around the call.
 *
 * No call aborts the process or lets a C++ exception out.
 */
#ifndef OSTREL_OSTREL_C_H
#define OSTREL_OSTREL_C_H

#include <stddef.h>
#include <stdint.h>

#if defined(_WIN32)
#if defined(OSTREL_C_BUILDING)
#define OSTREL_C_API __declspec(dllexport)
#else
#define OSTREL_C_API
#endif
#elif defined(__GNUC__) || defined(__clang__)
#define OSTREL_C_API __attribute__((visibility("default")))
#else
#define OSTREL_C_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* The version of this interface. It grows by one whenever functions are added;
 * nothing once exported is removed or changed. Compare with
 * ostrel_c_api_version() to learn what the loaded library offers. */
#define OSTREL_C_API_VERSION 1

/* Every enumeration ends in a *_FORCE_INT value that is never valid: it keeps
 * the type as wide as an int whatever a later version adds, and lets the
 * library check any value a caller passes. */

typedef struct ostrel_error ostrel_error_t;
typedef struct ostrel_config ostrel_config_t;
typedef struct ostrel_instance ostrel_t;
typedef struct ostrel_login ostrel_login_t;

typedef enum ostrel_code {
  OSTREL_OK = 0,
  /* The library refused or failed: *error carries its OLError. */
  OSTREL_ERROR = 1,
  /* Refused by this C layer before reaching the library: a NULL where a value
   * is required, text that is not UTF-8, JSON that does not parse or has the
   * wrong shape, a value outside an enumeration. Error code "InvalidArgument". */
  OSTREL_INVALID_ARGUMENT = 2,
  /* Memory ran out; *error may stay NULL. */
  OSTREL_OUT_OF_MEMORY = 3,
  /* An internal failure that should not happen (a bug): error code "InternalError". */
  OSTREL_INTERNAL_ERROR = 4,
  OSTREL_CODE_FORCE_INT = 0x7fffffff
} ostrel_code_t;

/* ---------------------------------------------------------------- version */

/* OSTREL_C_API_VERSION of the library actually loaded. Any thread. */
OSTREL_C_API int ostrel_c_api_version(void);
/* The library's version text, e.g. "v4.1.1 7f9b2c0 2021-04-30T16:40:40+0200".
 * Static storage: never freed. Any thread. */
OSTREL_C_API const char* ostrel_version_string(void);
/* Frees a text the library handed out. NULL is ignored. */
OSTREL_C_API void ostrel_string_free(char* text);

/* ----------------------------------------------------------------- errors */

typedef enum ostrel_error_kind {
  /* The service answered with an error: the code is the service's text
   * (e.g. "WRONG_PIN", "HTTP 503"), the status the HTTP status. */
  OSTREL_ERROR_KIND_SERVICE = 0,
  /* The library raised it: the code is the raw text of its local code
   * (e.g. "EMAILLoginWrongPasswordError", "OstrelNotInitialized"). */
  OSTREL_ERROR_KIND_LOCAL = 1,
  /* This C layer raised it: "InvalidArgument", "OutOfMemory" or "InternalError". */
  OSTREL_ERROR_KIND_C_API = 2,
  OSTREL_ERROR_KIND_FORCE_INT = 0x7fffffff
} ostrel_error_kind_t;

/* The accessors answer texts that live as long as the error; each accepts
 * NULL and then answers OSTREL_ERROR_KIND_C_API, "" or NULL. */
OSTREL_C_API ostrel_error_kind_t ostrel_error_kind(const ostrel_error_t* error);
OSTREL_C_API const char* ostrel_error_code(const ostrel_error_t* error);
OSTREL_C_API const char* ostrel_error_message(const ostrel_error_t* error);
/* 1 and the HTTP status in *status when the error came from a reply; 0 otherwise. */
OSTREL_C_API int ostrel_error_status(const ostrel_error_t* error, int64_t* status);
/* The error's extra information as JSON text (an object), or NULL when it has none. */
OSTREL_C_API const char* ostrel_error_extra_json(const ostrel_error_t* error);
/* One line describing the whole error, for logs. */
OSTREL_C_API const char* ostrel_error_description(const ostrel_error_t* error);
/* A copy the caller owns (NULL for NULL, or when memory ran out). */
OSTREL_C_API ostrel_error_t* ostrel_error_copy(const ostrel_error_t* error);
OSTREL_C_API void ostrel_error_free(ostrel_error_t* error);

/* --------------------------------------------------------- configuration */

/* A line the library prints (it prints to stdout when no callback is set).
 * Runs on any of the library's threads, possibly on several at once. */
typedef void (*ostrel_log_fn)(const char* line, void* user_data);

/* An empty configuration, or NULL when memory ran out. Free it with
 * ostrel_config_free() once ostrel_start() returned; the instance keeps what
 * it needs. */
OSTREL_C_API ostrel_config_t* ostrel_config_new(void);
OSTREL_C_API void ostrel_config_free(ostrel_config_t* config);

/* The application secret; required. A secret containing "_" selects the sandbox. */
OSTREL_C_API ostrel_code_t ostrel_config_set_secret(ostrel_config_t* config, const char* secret,
                                                    ostrel_error_t** error);
/* The folder where the library keeps its queue, tokens and settings (an
 * absolute path; created when missing). Default: $OSTREL_STORAGE_DIR, else
 * $XDG_DATA_HOME/Ostrel or ~/.local/share/Ostrel. */
OSTREL_C_API ostrel_code_t ostrel_config_set_storage_dir(ostrel_config_t* config, const char* path,
                                                         ostrel_error_t** error);
/* Non-zero: take the deployment from the environment (OSTREL_SERVICE_DOMAIN,
 * OSTREL_SERVICE_SCHEME, OSTREL_CONNECT_TO, OSTREL_CA_FILE), for tests,
 * emulators and staging builds. A variable that is set but not valid fails
 * ostrel_start() with "OstrelInitializationError" naming it. Off by default:
 * a production host is never redirected by its environment. */
OSTREL_C_API ostrel_code_t ostrel_config_use_environment_deployment(ostrel_config_t* config,
                                                                    int enabled,
                                                                    ostrel_error_t** error);
/* The service's domain (a host name) and scheme ("https" or "http"); NULL
 * leaves one as it is. Applied after the environment, so it wins. */
OSTREL_C_API ostrel_code_t ostrel_config_set_service(ostrel_config_t* config, const char* domain,
                                                     const char* scheme, ostrel_error_t** error);
/* Where requests connect ("ADDRESS:PORT", whatever the URL's host) and an
 * extra PEM bundle of CAs to trust beside the system's; NULL leaves one as it
 * is. TLS verification is never switched off. Applied after the environment. */
OSTREL_C_API ostrel_code_t ostrel_config_set_network(ostrel_config_t* config,
                                                     const char* connect_to, const char* ca_file,
                                                     ostrel_error_t** error);
/* The host application's identity as the service sees it in the session
 * start, the push registration and store receipts ("app_identifier",
 * "app_version", "app_build"); NULL leaves a field at its default ("unknown").
 * ostrel_start refuses a text with a control character or over 256 bytes. */
OSTREL_C_API ostrel_code_t ostrel_config_set_app_identity(ostrel_config_t* config,
                                                          const char* app_identifier,
                                                          const char* app_version,
                                                          const char* app_build,
                                                          ostrel_error_t** error);
/* Whether the host is a development build (non-zero): a sandbox secret then
 * prints no release warning. Unset: not a development build. */
OSTREL_C_API ostrel_code_t ostrel_config_set_development(ostrel_config_t* config, int development,
                                                         ostrel_error_t** error);
/* Custom data (a JSON object of texts, numbers, booleans and nulls) carried
 * by the start-up session event. */
OSTREL_C_API ostrel_code_t ostrel_config_set_custom_data_json(ostrel_config_t* config,
                                                              const char* json,
                                                              ostrel_error_t** error);
/* An external parameter taken over at start-up; key "DistributionGroup" sets
 * the distribution group (checked at start). Setting a key again replaces it. */
OSTREL_C_API ostrel_code_t ostrel_config_set_external_parameter(ostrel_config_t* config,
                                                                const char* key, const char* value,
                                                                ostrel_error_t** error);
/* Where the library's console lines go; NULL restores stdout. `user_data`
 * must stay valid as long as the process runs: the library logs until exit. */
OSTREL_C_API ostrel_code_t ostrel_config_set_log_callback(ostrel_config_t* config,
                                                          ostrel_log_fn callback, void* user_data,
                                                          ostrel_error_t** error);

/* ------------------------------------------------------ start and stop */

/* Starts the process-wide instance. One per process: a second start fails
 * with "OstrelInitializationError" ("Ostrel Already Initialized. Must call
 * getSharedInstance"), also after ostrel_free(). A configuration the library
 * refuses (no secret, a bad deployment or distribution group) fails without
 * spending that one start. On success *instance receives a handle to free
 * with ostrel_free(). Call it from the thread that owns the application's
 * start-up. */
OSTREL_C_API ostrel_code_t ostrel_start(const ostrel_config_t* config, ostrel_t** instance,
                                        ostrel_error_t** error);
/* Waits until every event accepted before the call is on disk, at most
 * timeout_ms. Answers 1 when it is, 0 on time-out (or for NULL). No network.
 * Any thread but a library callback. */
OSTREL_C_API int ostrel_wait_until_persisted(ostrel_t* instance, uint32_t timeout_ms);
/* Orderly stop: writes what was accepted (waiting at most timeout_ms for a
 * write under way), stops the timers, abandons network work. A pending flush
 * callback is answered with "OstrelNotInitialized"; later analytics calls
 * fail with it. Idempotent. Any thread but a library callback. */
OSTREL_C_API ostrel_code_t ostrel_shutdown(ostrel_t* instance, uint32_t timeout_ms,
                                           ostrel_error_t** error);
/* Shuts down (waiting at most a second) when that was not done, and frees the
 * handle. Callbacks already handed to the library may still run once. A
 * normal exit of the process persists accepted events all the same. */
OSTREL_C_API void ostrel_free(ostrel_t* instance);

/* The current session identifier and "PROD-SANDBOX" / "PROD-RELEASE". */
OSTREL_C_API ostrel_code_t ostrel_get_session_id(ostrel_t* instance, char** session_id,
                                                 ostrel_error_t** error);
OSTREL_C_API ostrel_code_t ostrel_get_environment(ostrel_t* instance, char** environment,
                                                  ostrel_error_t** error);
/* The distribution group sent with every request and kept across runs; one
 * with a control character, a double quote or a backslash is refused
 * ("ConnectionValidationError") and the group stays as it was. */
OSTREL_C_API ostrel_code_t ostrel_set_distribution_group(ostrel_t* instance, const char* group,
                                                         ostrel_error_t** error);
OSTREL_C_API ostrel_code_t ostrel_unset_distribution_group(ostrel_t* instance,
                                                           ostrel_error_t** error);

/* -------------------------------------------------------------- analytics */

/* A call that returns OSTREL_OK has handed its event to the library, which
 * writes it to disk within milliseconds and delivers it (after a crash
 * possibly twice, never not at all). No file or network work happens on the
 * caller's thread. Names of events, timers and flows match ^[\w-]{1,32}$.
 * `custom_data_json`: NULL, or a JSON object of texts, numbers, booleans and
 * nulls (texts cut to 2048 characters, 10240 archived bytes at most). */
OSTREL_C_API ostrel_code_t ostrel_send_event(ostrel_t* instance, const char* name,
                                             const char* custom_data_json, ostrel_error_t** error);
OSTREL_C_API ostrel_code_t ostrel_timed_event_start(ostrel_t* instance, const char* name,
                                                    const char* custom_data_json,
                                                    ostrel_error_t** error);
OSTREL_C_API ostrel_code_t ostrel_timed_event_stop(ostrel_t* instance, const char* name,
                                                   const char* custom_data_json,
                                                   ostrel_error_t** error);
OSTREL_C_API ostrel_code_t ostrel_is_timed_event_running(ostrel_t* instance, const char* name,
                                                         int* running, ostrel_error_t** error);
OSTREL_C_API ostrel_code_t ostrel_flow_begin(ostrel_t* instance, const char* name,
                                             const char* custom_data_json, ostrel_error_t** error);
OSTREL_C_API ostrel_code_t ostrel_flow_step(ostrel_t* instance, const char* name,
                                            const char* custom_data_json, ostrel_error_t** error);
OSTREL_C_API ostrel_code_t ostrel_flow_succeed(ostrel_t* instance, const char* reason,
                                               const char* custom_data_json,
                                               ostrel_error_t** error);
OSTREL_C_API ostrel_code_t ostrel_flow_fail(ostrel_t* instance, const char* reason,
                                            const char* custom_data_json, ostrel_error_t** error);
OSTREL_C_API ostrel_code_t ostrel_flow_cancel(ostrel_t* instance, const char* reason,
                                              const char* custom_data_json, ostrel_error_t** error);
OSTREL_C_API ostrel_code_t ostrel_is_flow_begun(ostrel_t* instance, int* begun,
                                                ostrel_error_t** error);
/* The name of the current (or last) flow's latest step; fails ("InvalidEvent",
 * "Flow was never begun") before the first flow. */
OSTREL_C_API ostrel_code_t ostrel_get_current_flow_name(ostrel_t* instance, char** name,
                                                        ostrel_error_t** error);

typedef enum ostrel_ranking_scope {
  OSTREL_RANKING_CONSUMPTION = 0,
  OSTREL_RANKING_SOCIAL = 1,
  OSTREL_RANKING_EDITORIAL = 2,
  OSTREL_RANKING_UNKNOWN = 3,
  OSTREL_RANKING_FORCE_INT = 0x7fffffff
} ostrel_ranking_scope_t;

OSTREL_C_API ostrel_code_t ostrel_rank_content(ostrel_t* instance, const char* content_id,
                                               ostrel_ranking_scope_t scope, float multiplier,
                                               ostrel_error_t** error);

typedef enum ostrel_attach_type {
  OSTREL_ATTACH_MASTER = 0,
  OSTREL_ATTACH_PEER = 1,
  OSTREL_ATTACH_UNKNOWN = 2,
  OSTREL_ATTACH_FORCE_INT = 0x7fffffff
} ostrel_attach_type_t;

/* `attached_user_id` may be NULL. */
OSTREL_C_API ostrel_code_t ostrel_attach_session(
    ostrel_t* instance, const char* attached_session_id, const char* attached_user_id,
    ostrel_attach_type_t attach_type, const char* custom_data_json, ostrel_error_t** error);
OSTREL_C_API ostrel_code_t ostrel_attach_master_session(ostrel_t* instance,
                                                        const char* master_session_id,
                                                        const char* master_user_id,
                                                        const char* custom_data_json,
                                                        ostrel_error_t** error);

/* The outcome of an asynchronous call: `error` NULL on success; `result` a
 * text whose meaning each call states (NULL when it has none). Both borrowed. */
typedef void (*ostrel_result_fn)(const ostrel_error_t* error, const char* result, void* user_data);

/* Sends now everything queued. The callback runs once, when every event
 * accepted before the call was sent (result: the last reply's JSON, or NULL)
 * or the first send failed; after ostrel_shutdown() at once, with
 * "OstrelNotInitialized". */
OSTREL_C_API ostrel_code_t ostrel_flush(ostrel_t* instance, ostrel_result_fn callback,
                                        void* user_data, ostrel_error_t** error);

/* ----------------------------------------------------------- the user */

/* The current user token: the service's when logged, else the autologin or
 * the anonymous one ("A_" + device identifier). */
OSTREL_C_API ostrel_code_t ostrel_get_user_token(ostrel_t* instance, char** token,
                                                 ostrel_error_t** error);
OSTREL_C_API ostrel_code_t ostrel_is_user_logged(ostrel_t* instance, int* logged,
                                                 ostrel_error_t** error);
OSTREL_C_API ostrel_code_t ostrel_user_logout(ostrel_t* instance, ostrel_error_t** error);
/* Re-reads the user's state from the service. Callback result: NULL. */
OSTREL_C_API ostrel_code_t ostrel_sync_user_state(ostrel_t* instance, ostrel_result_fn callback,
                                                  void* user_data, ostrel_error_t** error);
/* The user's meta information (kept for half an hour); result: its JSON object. */
OSTREL_C_API ostrel_code_t ostrel_get_user_meta_info(ostrel_t* instance, ostrel_result_fn callback,
                                                     void* user_data, ostrel_error_t** error);
/* Told (result NULL, error set when the change came from a failure) whenever
 * the user's state changes: after a logout or a deletion, and when a login
 * flow ends. Runs on a network thread, or on the thread whose call changed the
 * state at once. A NULL callback removes the listener; `user_data` must stay
 * valid until then. */
OSTREL_C_API ostrel_code_t ostrel_set_user_state_listener(ostrel_t* instance,
                                                          ostrel_result_fn callback,
                                                          void* user_data, ostrel_error_t** error);

/* ------------------------------------------------------------- login */

typedef enum ostrel_login_flow {
  OSTREL_LOGIN_EMAIL = 0,              /* e-mail + password */
  OSTREL_LOGIN_EMAIL_SIGNUP = 1,       /* e-mail + password; creates the account */
  OSTREL_LOGIN_EMAIL_FORGOT = 2,       /* e-mail; asks for a password reminder */
  OSTREL_LOGIN_EMAIL_RESEND = 3,       /* e-mail; sends the confirmation again */
  OSTREL_LOGIN_MSISDN_PIN = 4,         /* MSISDN + PIN (or no PIN) */
  OSTREL_LOGIN_MSISDN_PIN_FORGOT = 5,  /* MSISDN; asks for a new PIN */
  OSTREL_LOGIN_MSISDN_RECOGNITION = 6, /* the mobile operator recognises the user */
  OSTREL_LOGIN_FORCE_INT = 0x7fffffff
} ostrel_login_flow_t;

/* A login builder: set the credentials, then start one flow. One thread at a time. */
OSTREL_C_API ostrel_code_t ostrel_login_new(ostrel_t* instance, ostrel_login_t** login,
                                            ostrel_error_t** error);
OSTREL_C_API void ostrel_login_free(ostrel_login_t* login);
OSTREL_C_API ostrel_code_t ostrel_login_set_email(ostrel_login_t* login, const char* email,
                                                  ostrel_error_t** error);
OSTREL_C_API ostrel_code_t ostrel_login_set_password(ostrel_login_t* login, const char* password,
                                                     ostrel_error_t** error);
OSTREL_C_API ostrel_code_t ostrel_login_set_msisdn(ostrel_login_t* login, const char* msisdn,
                                                   ostrel_error_t** error);
OSTREL_C_API ostrel_code_t ostrel_login_set_pin(ostrel_login_t* login, const char* pin,
                                                ostrel_error_t** error);
/* The user has no PIN. */
OSTREL_C_API ostrel_code_t ostrel_login_set_no_pin(ostrel_login_t* login, ostrel_error_t** error);
/* The SIM's IMSI, sent by the operator recognition. */
OSTREL_C_API ostrel_code_t ostrel_login_set_imsi(ostrel_login_t* login, const char* imsi,
                                                 ostrel_error_t** error);
/* Custom data carried by the identify event of a successful login. */
OSTREL_C_API ostrel_code_t ostrel_login_set_custom_data_json(ostrel_login_t* login,
                                                             const char* json,
                                                             ostrel_error_t** error);
/* Parameters of the e-mails the service sends, and properties of a new user (sign-up). */
OSTREL_C_API ostrel_code_t ostrel_login_set_product_email_params_json(ostrel_login_t* login,
                                                                      const char* json,
                                                                      ostrel_error_t** error);
OSTREL_C_API ostrel_code_t ostrel_login_set_user_properties_json(ostrel_login_t* login,
                                                                 const char* json,
                                                                 ostrel_error_t** error);
/* Starts one flow. A builder that misses what the flow needs, or a library in
 * the wrong state, fails here ("LoginBuilderError") and the callback never
 * runs. Otherwise the callback (result NULL) runs once, on a network thread,
 * with the flow's outcome, also when the flow ends at once (another flow
 * under way, a user already logged).
 * The builder may be freed while the flow runs. */
OSTREL_C_API ostrel_code_t ostrel_login_start(ostrel_login_t* login, ostrel_login_flow_t flow,
                                              ostrel_result_fn callback, void* user_data,
                                              ostrel_error_t** error);

/* -------------------------------------------------------------- push */

/* A received push as JSON text: {"class", "type" ("Standard", "Url",
 * "Background", "Ping"), "push_id", "shown", "is_local"} and, as the type
 * has them, "body", "badge", "sound", "url", "custom" (an object). */
typedef void (*ostrel_push_fn)(const char* push_json, void* user_data);

/* The push service's device token, as raw bytes (not NUL-terminated text):
 * registered with the service now and again at every login and logout. An
 * empty token is refused. */
OSTREL_C_API ostrel_code_t ostrel_push_set_device_token(ostrel_t* instance, const void* token,
                                                        size_t token_length,
                                                        ostrel_error_t** error);
/* 1 in *registered once the service took the current token. */
OSTREL_C_API ostrel_code_t ostrel_push_is_registered(ostrel_t* instance, int* registered,
                                                     ostrel_error_t** error);
/* Reads a push payload (JSON text) into the push object above, or fails with
 * the payload's "PushNotificationError". Nothing is recorded or handed over;
 * needs no instance. */
OSTREL_C_API ostrel_code_t ostrel_push_parse(const char* payload_json, char** push_json,
                                             ostrel_error_t** error);
/* A remote payload received while the app runs (`app_is_background`
 * non-zero: the user opened it). Records it and hands the push to the push
 * callback; fails with the payload's "PushNotificationError" and hands nothing. */
OSTREL_C_API ostrel_code_t ostrel_push_process_remote(ostrel_t* instance, const char* payload_json,
                                                      int app_is_background,
                                                      ostrel_error_t** error);
/* Every push received reaches the callback exactly once, in arrival order.
 * Pushes that arrive while no callback is set wait (on disk, across restarts)
 * and reach the next callback set. It runs on the thread that hands pushes
 * over: an ostrel_push_process_remote() call (the one that received the push,
 * or another one handing pushes over at that moment), or this call's own for
 * pushes that waited; never under a lock of the library's. The callback is
 * kept until replaced (NULL: pushes wait again); `user_data` must stay valid
 * until then, and until a push that another thread was handing over at that
 * moment has reached it. */
OSTREL_C_API ostrel_code_t ostrel_push_set_callback(ostrel_t* instance, ostrel_push_fn callback,
                                                    void* user_data, ostrel_error_t** error);

/* ----------------------------------------------------------- payments */

typedef enum ostrel_marketplace {
  OSTREL_MARKET_APPLE_STORE = 0,
  OSTREL_MARKET_GOOGLE_PLAY = 1,
  OSTREL_MARKET_FORCE_INT = 0x7fffffff
} ostrel_marketplace_t;

/* The offer of a store item; result: the offer identifier. */
OSTREL_C_API ostrel_code_t ostrel_payment_get_offer(ostrel_t* instance, const char* native_item,
                                                    ostrel_marketplace_t marketplace,
                                                    ostrel_result_fn callback, void* user_data,
                                                    ostrel_error_t** error);
/* Tells the service about a purchase of `offer_id`, sending the store receipt
 * read from `receipt_path` (NULL: $OSTREL_RECEIPT_FILE). The user must be
 * logged in. Callback result: NULL. */
OSTREL_C_API ostrel_code_t ostrel_payment_add_receipt(ostrel_t* instance, const char* offer_id,
                                                      const char* receipt_path,
                                                      ostrel_result_fn callback, void* user_data,
                                                      ostrel_error_t** error);
/* The user's paying state; result: JSON {"is_paying": bool} with, when
 * paying, "payment": {"product", "item", "provider", "state", "type"} and the
 * service's "type_recurrent_extra" / "provider_carrier_extra" objects. */
OSTREL_C_API ostrel_code_t ostrel_payment_is_paying(ostrel_t* instance, ostrel_result_fn callback,
                                                    void* user_data, ostrel_error_t** error);

#ifdef __cplusplus
}
#endif

#endif /* OSTREL_OSTREL_C_H */
