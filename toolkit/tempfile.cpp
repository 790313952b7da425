#include "toolkit/tempfile.h"

#include <cstdio>
#include <cstring>

#include "core/interrupt.h"

namespace {

enum { kSlots = 4, kPathSize = 1024 };

char g_paths[kSlots][kPathSize];
bool g_used[kSlots];
bool g_installed = false;

void remove_registered() {
    for (int i = 0; i < kSlots; ++i) {
        if (!g_used[i]) continue;
        remove(g_paths[i]);
        g_used[i] = false;
    }
}

void install() {
    if (g_installed) return;
    g_installed = true;
    vk_interrupt_cleanup(remove_registered);
}

}  // namespace

bool vk_temp_file_add(const char *path) {
    if (strlen(path) >= kPathSize) return false;
    install();
    for (int i = 0; i < kSlots; ++i) {
        if (g_used[i]) continue;
        snprintf(g_paths[i], kPathSize, "%s", path);
        g_used[i] = true;
        return true;
    }
    return false;
}

void vk_temp_file_remove(const char *path) {
    for (int i = 0; i < kSlots; ++i) {
        if (g_used[i] && strcmp(g_paths[i], path) == 0) g_used[i] = false;
    }
    remove(path);
}
