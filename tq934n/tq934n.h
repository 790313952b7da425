// TQ934N platform: "$PVNK" sentences for restart, clear, position and time,
// a 'B' 'K' binary frame family, and RTCM 3 ephemeris files sent as raw
// 4096-byte blocks, each answered by a 'B' 'K' acknowledgement.
#pragma once

#include <cstdint>

#include "core/options.h"
#include "serial/serial.h"

// The platform's own meanings of the shared range.
enum : uint32_t {
    TQ934N_ERR_WRITE_TIME = 0x201,  // the aid time was not written whole
    TQ934N_ERR_WRITE_POS = 0x202,   // the aid position was not written whole
    TQ934N_ERR_EPH_OPEN = 0x204,    // the ephemeris file cannot be opened
};

enum : uint32_t { TQ934N_BLOCK = 4096, TQ934N_CMD_SIZE = 30 };

// The frame polGenCmd builds, and the RTCM file's state the flow shares.
extern uint8_t gCmd[TQ934N_CMD_SIZE];
extern int32_t rtcm_start_pos;      // offset of the first RTCM frame; -1 while none was found
extern uint8_t RecvBuff_time[100];  // the bytes in front of the first RTCM frame
extern int AGNSS_MODE;              // 1: up to 3999 bytes, 2: larger files
extern uint32_t already_send;       // file bytes sent so far; a later call resumes there

// Builds a 'B' 'K' frame of class 0x18 id 0x03 in gCmd: the words little-endian,
// then extra bytes of the next word, most significant first.
void polGenCmd(const uint32_t *words, uint32_t count, uint32_t extra);

uint32_t TQ934N_SendStartWay(SerialPort port, int way);
uint32_t TQ934N_Send_CLRADAT(SerialPort port);
uint32_t TQ934N_SendAidPosByNmea(SerialPort port, const VkPosAid *pos);
uint32_t TQ934N_SendAidTimeByNmea(SerialPort port, const VkTimeAid *time);
uint32_t TQ934N_SendAidTimeByBP(SerialPort port, const VkTimeAid *time);
uint32_t TQ934N_CheckNmeaCmdRsp(const char *buf, uint32_t len, const char *name);

uint32_t TQ934N_GetRtcmEphInfo(const char *path);
uint32_t TQ934N_SendEphDataByBP(SerialPort port, const char *path, int mode);

uint32_t TQ934N_AgnssOnline(int argc, char **argv);
