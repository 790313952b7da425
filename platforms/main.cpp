#include "core/result.h"
#include "platforms/entry.h"
#include "platforms/registry.h"

#ifdef _WIN32
#include <fcntl.h>
#include <io.h>

#include <cstdio>
#endif

int main(int argc, char **argv) {
#ifdef _WIN32
    // The console output is the same bytes on every OS: no "\n" -> "\r\n".
    _setmode(_fileno(stdout), _O_BINARY);
    _setmode(_fileno(stderr), _O_BINARY);
#endif
    return vk_exit_status(vk_main(argc, argv, vk_registry()));
}
