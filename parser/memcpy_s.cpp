// Bounded copy used by every decoder that copies part of a record into a
// structure of its own: a destination is never overrun and a missing source
// yields zeros.
#include "memcpy_s.h"

#include <cstring>

#include "ej_log.h"

void log_null_destination()
{
    ej_log(0, "memcpy_s: nullptr received\n");
}

void memcpy_s(void *dest, size_t destsz, const void *src, size_t count)
{
    if (dest == nullptr) {
        log_null_destination();
        return;
    }
    if (count > destsz) {
        ej_log(0, "memcpy_s: count(%zu) > destsz(%zu), downsizing count to destsz\n", count,
               destsz);
        count = destsz;
    }
    if (src == nullptr) {
        std::memset(dest, 0, count);
        return;
    }
    std::memcpy(dest, src, count);
}
