// Upload of whole crash and status files, one file per call, renamed "_readed" once sent.
#pragma once

#include <limits.h>
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
// the upload status, or the line's size when there is no SDK handle. Sampling thread only (it
// shares one file buffer). No symbolic link is followed below `dir` itself, and the working
// directory plays no part.
int32_t set_for_blob(const char* dir, const char* prefix, int32_t kpi_id);

// Where a search found its file: an open descriptor of the directory that holds it, and the
// file's name in that directory.
struct FoundFile {
    int dir_fd = -1;
    char name[NAME_MAX + 1] = {};
};

// Directory search of set_for_blob. `path_out` holds kFilePathSize bytes. Returns 1 with the full
// path in `path_out` when a file qualifies, -EINVAL when `dir` cannot be opened, otherwise 0 or
// the result of the last subdirectory searched. Every subdirectory is opened by its bare name
// relative to `dir`, so only the top directory's own subdirectories are really searched; `dir`
// and every directory below it are opened without following a symbolic link in its place. With
// `found`, a found file's directory stays open there for the caller to close.
int32_t getFileName(const char* dir, const char* prefix, size_t prefix_len, char* path_out,
                    FoundFile* found = nullptr);

// True when `name` is a file name the search hands out for `prefix`: it starts with the prefix's
// first `prefix_len` characters and contains neither "_readed" nor ".pb".
bool file_name_qualifies(const char* name, const char* prefix, size_t prefix_len);

// Composes into `path_out` (kFilePathSize bytes) the full path of `name`, found while searching
// `dir` below the top directory `top`: `dir` is either the top directory itself (when it starts
// with `top`) or the bare name of one of its subdirectories. Returns false, with `path_out`
// cleared, when the path with a comma and its NUL does not fit.
bool compose_found_path(const char* top, const char* dir, const char* name, char* path_out);

// Opens `name` in the directory open on `dir_fd` for reading only if it is a regular file at the
// moment of opening: a symlink is not followed and a FIFO or device is never waited on. Returns
// the descriptor, or -1 otherwise.
int open_regular_at(int dir_fd, const char* name);
