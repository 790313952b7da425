#include "core/getopt.h"

#include <cstdio>
#include <cstring>

char *vk_optarg = nullptr;
int vk_optind = 1;
int vk_optopt = 0;

namespace {
int g_next = 0;  // position inside a group of letters such as -cv
}

void vk_getopt_reset() {
    vk_optarg = nullptr;
    vk_optind = 1;
    vk_optopt = 0;
    g_next = 0;
}

int vk_getopt(int argc, char *const argv[], const char *optstring) {
    vk_optarg = nullptr;
    if (g_next == 0) {
        if (vk_optind >= argc || argv[vk_optind] == nullptr) return -1;
        const char *arg = argv[vk_optind];
        if (arg[0] != '-' || arg[1] == '\0') return -1;
        if (strcmp(arg, "--") == 0) {
            ++vk_optind;
            return -1;
        }
        g_next = 1;
    }
    char *arg = argv[vk_optind];
    int c = (unsigned char)arg[g_next++];
    const char *entry = (c == ':') ? nullptr : strchr(optstring, c);
    bool group_done = arg[g_next] == '\0';
    if (entry == nullptr) {
        vk_optopt = c;
        fprintf(stderr, "unknown option -- %c\n", c);
        if (group_done) {
            ++vk_optind;
            g_next = 0;
        }
        return '?';
    }
    if (entry[1] != ':') {  // a plain flag
        if (group_done) {
            ++vk_optind;
            g_next = 0;
        }
        return c;
    }
    bool optional = entry[2] == ':';
    if (!group_done) {
        vk_optarg = arg + g_next;
    } else if (!optional) {
        if (vk_optind + 1 >= argc) {
            vk_optopt = c;
            fprintf(stderr, "option requires an argument -- %c\n", c);
            ++vk_optind;
            g_next = 0;
            return '?';
        }
        vk_optarg = argv[++vk_optind];
    }
    ++vk_optind;
    g_next = 0;
    return c;
}
