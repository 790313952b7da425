// STA8100 platform: one entry, two dialects chosen by the firmware type:
// "$PSTM" sentences answered by text lines, or RTCM 3 message-999 frames
// answered by binary acknowledgement frames; ephemeris as "PSTMEPHEM" text
// lines or RTCM 3 frames, streamed unacknowledged.
#pragma once

#include <cstdint>

#include "serial/serial.h"

enum : int { STA8100_NMEA = 1, STA8100_RTCM = 2 };

// The platform's own meanings of the shared range.
enum : uint32_t {
    STA8100_ERR_WRITE_TIME = 0x201,  // the aid time was not written whole
    STA8100_ERR_WRITE_POS = 0x202,   // the aid position was not written whole
    STA8100_ERR_EPH_OPEN = 0x204,    // the ephemeris file cannot be opened
    STA8100_ERR_EPH_FILE = 0x206,    // the ephemeris file is malformed or a CRC is wrong
};

// -u: the time text, or "0" for the computer's clock.
struct StTime {
    int enable;
    int use_clock;
    char text[64];
};

// -l: latitude,N|S,longitude,E|W,altitude.
struct StPos {
    int enable;
    char lat[18];
    char lat_dir;
    char lon[18];
    char lon_dir;
    char alt[18];
};

uint32_t STA8100_SendStartWay(SerialPort port, int type);
uint32_t STA8100_SendAidTimeByNmea(SerialPort port, const StTime *time);
uint32_t STA8100_SendAidTimeByBP(SerialPort port, const StTime *time);
uint32_t STA8100_SendAidPosByNmea(SerialPort port, const StPos *pos, const StTime *time);
uint32_t STA8100_SendAidPosByBP(SerialPort port, const StPos *pos, const StTime *time);
uint32_t STA8100_SendEphData(SerialPort port, const char *path);
uint32_t STA8100_SendEphDataByBP(SerialPort port, const char *path);
// Waits up to 5000 ms (reads of 1024 bytes, 3000 ms each) for the
// acknowledgement frame of command id: 0, 0x107 (a silent read) or 0x200.
uint32_t STA8100_CheckBinCmdRsp(SerialPort port, uint32_t id);
uint32_t STA8100_CheckNmeaCmdRsp(const char *buf, uint32_t len, const char *name);

// The command frames as they go on the wire (for tests and the virtual receiver).
extern const uint8_t kSta8100ColdStartRtcm[13];
// 12 bytes: D3 00 06 3E 71 ... and the CRC-24Q of the first 9.
void sta8100_ack_frame(uint32_t id, uint8_t out[12]);
// 15 and 21 bytes.
void sta8100_time_frame(int year, int month, int day, int hour, int minute, int second,
                        uint8_t out[15]);
void sta8100_pos_frame(int32_t lat_arcsec, int32_t lon_arcsec, int32_t alt_m, uint8_t out[21]);

// Summaries of the ephemeris files: 0, or 0x107.
uint32_t ST_GetNmeaEphInfo(const char *path);
uint32_t ST_GetRtcmEphInfo(const char *path);

uint32_t STA8100_AgnssOnline(int argc, char **argv);
