#include "core/getopt.h"

#include <cstdio>
#include <cstring>
#include <string>

char *vk_optarg = nullptr;
int vk_optind = 1;
int vk_optopt = 0;

namespace {

int g_next = 0;  // position inside a group of letters such as -cv

// How the last option word ended, so that a stray word after it can be
// explained in the terms of that option.
VkStrayAfter g_last = VkStrayAfter::other;
int g_last_letter = 0;
bool g_warned = false;  // the stray words of one parse are reported once

// The entry reads these (and their values) wherever they stand, so a word
// list of what the parse did not reach leaves them out.
bool entry_option(const char *word) {
    return strcmp(word, "-m") == 0 || strcmp(word, "-o") == 0 || strcmp(word, "-R") == 0 ||
           strcmp(word, "-T") == 0;
}

// Everything from argv[from] on that the parse never reached, as one line
// of words; empty when nothing but the entry's own options is left.
std::string unread_words(int argc, char *const argv[], int from) {
    std::string words;
    for (int i = from; i < argc && argv[i] != nullptr; ++i) {
        if (entry_option(argv[i])) {
            ++i;  // its value goes with it
            continue;
        }
        if (!words.empty()) words += ' ';
        words += argv[i];
    }
    return words;
}

}  // namespace

std::string vk_stray_word_warning(int argc, char *const argv[], int stop, int last_letter,
                                  VkStrayAfter after) {
    if (stop < 0 || stop >= argc || argv[stop] == nullptr) return "";
    const char *word = argv[stop];
    if (strcmp(word, "--") == 0) {
        std::string rest = unread_words(argc, argv, stop + 1);
        if (rest.empty()) return "";
        return "warning: the options after '--' were not read: " + rest + "\n";
    }
    std::string text = "warning: '" + std::string(word) + "' was ignored: ";
    const std::string letter(1, char(last_letter));
    switch (after) {
        case VkStrayAfter::bare_optional:
            text += "-" + letter + " takes its value attached, as -" + letter + word + "\n";
            break;
        case VkStrayAfter::flag: text += "-" + letter + " takes no value\n"; break;
        default: text += "no option takes it\n"; break;
    }
    std::string rest = unread_words(argc, argv, stop + 1);
    if (!rest.empty())
        text +=
            "warning: the options after '" + std::string(word) + "' were not read: " + rest + "\n";
    return text;
}

void vk_getopt_reset() {
    vk_optarg = nullptr;
    vk_optind = 1;
    vk_optopt = 0;
    g_next = 0;
    g_last = VkStrayAfter::other;
    g_last_letter = 0;
    g_warned = false;
}

namespace {

// The parse ends at argv[vk_optind], a word that is no option: the words
// from there on take no effect, which the person typing them should know
// before anything goes to the receiver.
void warn_stray(int argc, char *const argv[]) {
    if (g_warned) return;
    g_warned = true;
    std::string text = vk_stray_word_warning(argc, argv, vk_optind, g_last_letter, g_last);
    if (!text.empty()) {
        fputs(text.c_str(), stderr);
        fflush(stderr);
    }
}

}  // namespace

int vk_getopt(int argc, char *const argv[], const char *optstring) {
    vk_optarg = nullptr;
    if (g_next == 0) {
        if (vk_optind >= argc || argv[vk_optind] == nullptr) return -1;
        const char *arg = argv[vk_optind];
        if (arg[0] != '-' || arg[1] == '\0' || strcmp(arg, "--") == 0) warn_stray(argc, argv);
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
    g_last_letter = c;
    g_last = VkStrayAfter::other;
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
        g_last = VkStrayAfter::flag;
        if (group_done) {
            ++vk_optind;
            g_next = 0;
        }
        return c;
    }
    bool optional = entry[2] == ':';
    if (!group_done) {
        vk_optarg = arg + g_next;
    } else if (optional) {
        g_last = VkStrayAfter::bare_optional;  // a separate word is not its value
    } else {
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
