// Upload of whole crash and status files, one file per call, renamed "_readed" once sent.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <atomic>

#include "zel_helper.h"

// A found path, the comma that follows it in the upload and the terminating NUL fit in this many
// bytes; a file whose path would not fit is skipped by the search.
constexpr size_t kFilePathSize = 255;
// Room left free in the file buffer by the read, for the header and application name.
constexpr size_t kFileReadReserve = 150;
// Suffix that marks a file as reported.
#define FILE_READED_SUFFIX "_readed"

// Stability collection on or off: set by the stability collector's init, cleared by its exit;
// set_for_blob does nothing while it is false. Written by the thread that starts the sampling
// core, read on the sampling thread.
extern std::atomic<bool> g_stability_ready;

// Searches `dir` (and its direct subdirectories) for the first regular file whose name starts with
// `prefix` and carries neither "_readed" nor ".pb", reads it, uploads its path and content under
// `kpi_id` and renames it with the suffix "_readed". Returns -1 when nothing was sent, otherwise
// the upload status, or the line's size when there is no SDK handle. Sampling thread only: it
// changes the working directory.
int32_t set_for_blob(const char* dir, const char* prefix, int32_t kpi_id);

// Directory search of set_for_blob, run with the working directory set to `dir`. `path_out` holds
// kFilePathSize bytes. Returns 1 with the full path in `path_out` when a file qualifies, -EINVAL
// when `dir` cannot be opened, otherwise 0 or the result of the last subdirectory searched.
// Subdirectories are opened by their bare names, relative to the working directory, so only the
// top directory's own subdirectories are really searched. `depth` counts the levels below the
// top directory; callers leave it 0.
int32_t getFileName(const char* dir, const char* prefix, size_t prefix_len, char* path_out,
                    int depth = 0);

// True when `name` is a file name the search hands out for `prefix`: it starts with the prefix's
// first `prefix_len` characters and contains neither "_readed" nor ".pb".
bool file_name_qualifies(const char* name, const char* prefix, size_t prefix_len);

// Composes into `path_out` (kFilePathSize bytes) the full path of `name`, found while searching
// `dir` with `cwd` as the working directory: `dir` is either the top directory itself (when it
// starts with `cwd`) or the bare name of one of its subdirectories. Returns false, with
// `path_out` cleared, when the path with a comma and its NUL does not fit.
bool compose_found_path(const char* cwd, const char* dir, const char* name, char* path_out);

// Opens `path` for reading only if it is a regular file at the moment of opening: a symlink is
// not followed and a FIFO or device is never waited on. Returns the descriptor, or -1 otherwise.
int open_regular_file(const char* path);
