#include "core/file.h"

#include <cerrno>
#include <cstdio>

#include <sys/stat.h>
#ifndef _WIN32
#include <fcntl.h>
#include <unistd.h>
#endif

namespace {

const char *file_kind(unsigned mode) {
    if (S_ISDIR(mode)) return "a directory";
    if (S_ISCHR(mode)) return "a character device";
#ifdef S_ISFIFO
    if (S_ISFIFO(mode)) return "a FIFO";
#endif
#ifdef S_ISSOCK
    if (S_ISSOCK(mode)) return "a socket";
#endif
#ifdef S_ISBLK
    if (S_ISBLK(mode)) return "a block device";
#endif
    return "a special file";
}

// Sets errno for a path that is not a regular file and says what it is (a
// directory's errno says so itself).
FILE *refuse(const char *path, unsigned mode) {
    if (!S_ISDIR(mode)) {
        fprintf(stderr, "vkagnss: %s is %s, not a regular file\n", path, file_kind(mode));
        fflush(stderr);
    }
    errno = S_ISDIR(mode) ? EISDIR : EINVAL;
    return nullptr;
}

}  // namespace

FILE *vk_fopen_regular(const char *path) {
    struct stat st;
    if (stat(path, &st) != 0) return nullptr;
    if (!S_ISREG(st.st_mode)) return refuse(path, unsigned(st.st_mode));
#ifdef _WIN32
    return fopen(path, "rb");
#else
    // The name may have become a FIFO since: open without waiting, then look
    // at what was opened.
    int fd = open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) return nullptr;
    if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
        close(fd);
        return refuse(path, unsigned(st.st_mode));
    }
    fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) & ~O_NONBLOCK);
    FILE *f = fdopen(fd, "rb");
    if (f == nullptr) close(fd);
    return f;
#endif
}
