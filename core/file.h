// Opening the input files a run reads (ephemeris, EPO and summary files).
#pragma once

#include <cstdio>

// Opens path for binary reading, but only a regular file: a FIFO, a device,
// a socket or a directory is refused before anything could block on it
// (errno EINVAL, or EISDIR for a directory), and the open itself never waits.
// A refusal other than a directory says on stderr what the path is. Null on
// failure, with errno set, as fopen.
FILE *vk_fopen_regular(const char *path);
