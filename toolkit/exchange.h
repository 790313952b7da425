// The sentence exchange every text dialect shares: a body gets its
// "*XX\r\n" trailer, is logged, written whole, and its reply awaited. The
// wordings, the code of a short write and the reply rule are the caller's
// data.
#pragma once

#include <cstdint>

#include "toolkit/reply.h"

// The short-write messages (sent and wanted byte counts follow).
inline constexpr const char VK_SHORT_WRITE_START[] =
    "[ERROR] send START CMD failed,actual_send:%d,len:%d\n";
inline constexpr const char VK_SHORT_WRITE_TIME[] =
    "[ERROR] send time failed,actual_send:%d,len:%d\n";
inline constexpr const char VK_SHORT_WRITE_UART[] =
    "[ERROR] uart send failed,actual_send:%d,len:%d\n";

struct VkSentence {
    const char *log = nullptr;        // format logging the sentence before the write ("%s")
    const char *log_after = nullptr;  // the same after a whole write
    const char *short_write = VK_SHORT_WRITE_UART;
    uint32_t short_write_code = VK_ERR_COMMAND;
    const char *expected = nullptr;  // what the reply check looks for; null: no reply awaited
    VkReplyCheck check = nullptr;
    VkReplyWait wait;
};

enum : uint32_t { VK_SENTENCE_SIZE = 352 };

// Builds "<body>*XX\r\n" into out (VK_SENTENCE_SIZE bytes); an empty body
// gives the bare trailer "*00\r\n". Returns the length, 0 when it does not fit.
uint32_t Vk_BuildSentence(char *out, const char *body);

// Sends body as a sentence and waits for its reply as how says. Returns the
// reply's verdict, 0 when no reply is awaited, or how.short_write_code.
uint32_t Vk_SendSentence(SerialPort port, const char *body, const VkSentence &how);
