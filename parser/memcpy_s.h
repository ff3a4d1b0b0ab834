/*
 * memcpy_s.h - the library's bounded copy (internal, not exported).
 */
#ifndef EJ_MEMCPY_S_H
#define EJ_MEMCPY_S_H

#include <cstddef>

/*
 * Copy count bytes from src to dest, never more than destsz.
 * - dest null: logs "memcpy_s: nullptr received\n" and does nothing.
 * - count > destsz: logs the downsizing message and copies destsz bytes.
 * - src null: zero-fills the bytes instead (no log line).
 * These two messages are the only lines the library ever logs.
 */
void memcpy_s(void *dest, size_t destsz, const void *src, size_t count);

/* The message of a null destination, for decoders that copy by hand. */
void log_null_destination();

#endif /* EJ_MEMCPY_S_H */
