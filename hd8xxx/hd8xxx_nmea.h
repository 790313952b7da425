// What the HD8XXX and MJ7XXX backends share beyond the public names: the
// acknowledgement evaluation and the "$PVNK" sentence exchange, with the
// wordings that differ between the two as data.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "core/log.h"
#include "core/options.h"
#include "serial/serial.h"
#include "toolkit/exchange.h"

// How an ACK/NAK answer is reported.
struct HdAckWords {
    const char *nak = "";    // "%x": byte 3 of the answer
    const char *other = "";  // "%x", "%x": class and id of the answer
    const char *name =
        nullptr;  // success "<name>: recv ACK-ACK ok" (no line end); null: " recv ACK-ACK ok\n"
    bool purge = false;  // empty the receive side after an answer
};
extern const HdAckWords kHdAckMsg;

// Awaits the acknowledgement of class/id and reports it: 0 or 0x107.
uint32_t hd8xxx_evaluate_ack(SerialPort port, uint8_t cls, uint8_t id, const HdAckWords &words);

// Logs the caption and the frame in hex, writes it whole and awaits its
// acknowledgement: 0, 0x107, or 0x201 for a short write.
uint32_t hd8xxx_send_frame(SerialPort port, const char *caption, const uint8_t *frame, uint32_t len,
                           const HdAckWords &words);

// How a failed "$PVNK" reply is reported ("%s": the sentence name, "%d": the error code).
struct HdReplyWords {
    const char *not_ok = "";    // the second field is not "OK"
    const char *no_field = "";  // the reply has no first field
};
extern const HdReplyWords kHdReplyWords;

// The reply sentence to name in a read, its checksum compared the weak way,
// split into its non-empty comma fields: 0, 0x200 (not there) or 0x202.
uint32_t hd8xxx_reply_fields(const char *buf, uint32_t len, const char *name,
                             std::vector<std::string> *fields);
uint32_t hd8xxx_check_reply(const char *buf, uint32_t len, const char *name,
                            const HdReplyWords &words);
// The restart; short_write (null: a short write goes unnoticed) is logged
// with the counts when the write falls short, and the result is then 0x107.
uint32_t hd8xxx_start_way(SerialPort port, int start_way, int binary, const char *short_write);
// The reply wait of the sentences: 5000 ms over 200 ms reads of up to 10240
// bytes with split sentences joined; nothing_read is the verdict of a read
// that brought nothing.
VkReplyWait hd8xxx_reply_wait(uint32_t nothing_read);
// The exchange of one aiding sentence: its log line, its short-write message
// and code, and the reply wait above.
VkSentence hd8xxx_aid_sentence(const char *log, const char *short_write, uint32_t code,
                               const char *name, VkReplyCheck check, uint32_t nothing_read);
// Latitude, longitude, altitude, accuracy as numbers; false (after its
// message) when latitude or longitude is exactly 0.
bool hd8xxx_read_position(const VkPosAid *pos, double v[4]);
// The "$PVNKAIDTIME" body.
void hd8xxx_time_body(char *body, size_t size, const VkTimeAid *time);
