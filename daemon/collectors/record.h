// A collector's text record, built in a fixed buffer by bounded appends.
//
// A record that would not fit into its buffer is not reported at all: the append that would pass
// the buffer's end leaves the record as it was and returns RECORD_NO_ROOM, and the handler ends
// without a record, as it does on a formatting error. A record cut at the buffer's end would end
// in a half-written part whose numbers read as valid but wrong values.
#pragma once

#include <stdint.h>

#include "tarn_log.h"

// Size of a handler's record buffer.
#define RECORD_BUFLEN 4096

// Result of an append whose text does not fit into what is left of the buffer.
#define RECORD_NO_ROOM (-1)

struct record {
    char* buf;
    int32_t len;      // size of `buf`
    int32_t use;      // characters written so far; buf[use] is always a NUL
    const char* tag;  // log tag of the collector, for the message of a record that is full

    // Starts an empty record in `buf` of `len` bytes, zero-filled.
    record(char* buf, int32_t len, const char* tag = TAG_POWER);

    // Zero-fills the buffer and empties the record.
    void clear();

    // Formats at `use` into the room that is left. Returns the formatted length, by which `use`
    // grew, a negative formatting result, or RECORD_NO_ROOM; on a negative result the record is
    // unchanged and the caller drops it.
    int append(const char* fmt, ...) __attribute__((format(printf, 2, 3)));

    // Hands the record (text and length) to the upload helper under `kpi_id`.
    void report(int32_t kpi_id) const;
};
