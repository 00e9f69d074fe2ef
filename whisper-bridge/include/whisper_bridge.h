/* The C interface of the whisper-bridge crate: one whisper.cpp context from a
 * model file, full transcription with Quillmoss's fixed parameters, segment
 * texts, and the engine's log output. Matches whisper-bridge/src/lib.rs. */
#pragma once

#include <stdbool.h>
#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct WhisperBridgeContext WhisperBridgeContext;

enum
{
    WHISPER_BRIDGE_LOG_DEBUG = 0,
    WHISPER_BRIDGE_LOG_INFO = 1,
    WHISPER_BRIDGE_LOG_WARN = 2,
    WHISPER_BRIDGE_LOG_ERROR = 3,
    /* the rest of the line of the message before */
    WHISPER_BRIDGE_LOG_CONT = 4,
    /* a recognized segment as it is decoded: "[t0 --> t1]  text" */
    WHISPER_BRIDGE_LOG_SEGMENT = 5,
};

/* whisper_bridge_full's result when the samples cannot be handed over at all. */
enum
{
    WHISPER_BRIDGE_ERROR_BAD_INPUT = -100
};

typedef void (*WhisperBridgeLogCallback)(int level, const char* text, void* user_data);
typedef bool (*WhisperBridgeAbortCallback)(void* user_data);

/* Routes whisper.cpp's and ggml's log output to `callback` (NULL: dropped);
 * nothing of theirs reaches stdout or stderr once any bridge function ran.
 * Called from any thread, messages possibly in pieces (LOG_CONT). */
void whisper_bridge_set_log_callback(WhisperBridgeLogCallback callback, void* user_data);

/* Loads a model with whisper.cpp's default context parameters; NULL on failure. */
WhisperBridgeContext* whisper_bridge_init(const char* path);

/* Frees a context; NULL is ignored. */
void whisper_bridge_free(WhisperBridgeContext* context);

/* Recognizes `count` 16 kHz mono samples on `n_threads` threads after
 * resetting the timings: beam search, English, no context, one segment without
 * timestamps. `abort` (may be NULL) is polled while it runs; returning true
 * stops it with an error. Returns 0 on success. One call per context at a time. */
int whisper_bridge_full(WhisperBridgeContext* context, const float* samples, size_t count,
                        int n_threads, WhisperBridgeAbortCallback abort, void* abort_user_data);

/* Segments of the last successful transcription, and their UTF-8 texts (valid
 * until the next transcription or free; NULL out of range). */
int whisper_bridge_n_segments(const WhisperBridgeContext* context);
const char* whisper_bridge_segment_text(const WhisperBridgeContext* context, int index);

/* The device the context computes on: a GPU's name, or "CPU". */
const char* whisper_bridge_compute_backend(const WhisperBridgeContext* context);

/* whisper.cpp's system information line and version; valid for the process. */
const char* whisper_bridge_system_info(void);
const char* whisper_bridge_version(void);

#ifdef __cplusplus
}
#endif
