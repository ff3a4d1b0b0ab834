/*
 * ej_log.h - the camera stack's logging library (libej_log-vantor.so.0).
 *
 * Stand-in: ej_log() formats its arguments and writes the line to stderr.
 * Tests can route the lines to a callback of their own instead.
 *
 * This header compiles as C99 and as C++.
 */
#ifndef EJ_LOG_H
#define EJ_LOG_H

#ifdef __cplusplus
extern "C" {
#endif

/** Log a printf-style line on a channel (the parser always uses channel 0). */
#if defined(__GNUC__)
__attribute__((format(printf, 2, 3)))
#endif
void ej_log(int channel, const char *fmt, ...);

/** Receives each formatted line instead of stderr. */
typedef void (*ej_log_sink)(int channel, const char *line, void *user);

/**
 * Stand-in only: route the lines to sink (null restores stderr). Meant for
 * tests; not thread-safe against concurrent ej_log() calls.
 */
void ej_log_set_sink(ej_log_sink sink, void *user);

#ifdef __cplusplus
}
#endif

#endif /* EJ_LOG_H */
