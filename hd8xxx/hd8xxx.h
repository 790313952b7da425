// HD8XXX platform: binary F1 D9 frames and "$PVNK" sentences for restart,
// time and position aiding; ".hdb" ephemeris frames sent one by one online;
// RTCM ephemeris files downloaded into the receiver's flash by YMODEM offline.
#pragma once

#include <cstdint>
#include <span>

#include "core/log.h"
#include "core/options.h"
#include "serial/serial.h"
#include "toolkit/frame.h"

// The platform's own meanings of the shared range (MJ7XXX uses them too).
enum : uint32_t {
    HD8XXX_ERR_WRITE = 0x201,         // a command frame or time sentence was not written whole
    HD8XXX_ERR_REPLY = 0x202,         // the reply says failure or is malformed; NMEA short write
    HD8XXX_ERR_TRANSFER = 0x203,      // an ephemeris transfer failed
    HD8XXX_ERR_FILE_OPEN = 0x204,     // a file could not be opened
    HD8XXX_ERR_FILE_READ = 0x205,     // a file read returned the wrong length
    HD8XXX_ERR_FILE_FORMAT = 0x206,   // a file's content is malformed
    HD8XXX_ERR_YMODEM_READY = 0x207,  // the receiver never asked for the YMODEM file
};

enum : uint32_t {
    HD8XXX_ACK_SIZE = 10,        // F1 D9 05 01|00 02 00 class id A B
    HD8XXX_GPS_RECORD = 65,      // bytes of one GPS ephemeris record in a ".hdb" frame
    HD8XXX_BDS_RECORD = 92,      // bytes of one BDS ephemeris record
    HD8XXX_GPS_ID = 0x32,        // '2'
    HD8XXX_BDS_ID = 0x33,        // '3'
    HD8XXX_NMEA_BUFFER = 10240,  // receive buffer of the sentence replies
};

// --- binary protocol and aiding -----------------------------------------------------------

// The matcher of that wait: F1 D9 05 (00|01) 02 00 class id, then two check
// bytes taken unchecked; a byte that breaks a partial frame is not tried again
// as its start. value and mask are the caller's storage for the pattern.
VkFrameMatch hd8xxx_ack_match(uint8_t cls, uint8_t id, uint8_t (&value)[10], uint8_t (&mask)[10]);
// Waits up to 5000 ms (reads of up to 256 bytes, 1000 ms each) for the ACK or
// NAK of class/id; its 10 bytes land in out. 0, or 0x200 on time-out.
uint32_t HD8XXX_CheckBinCmdRsp(SerialPort port, uint8_t *out, uint8_t cls, uint8_t id);
// Start way 0 NONE, 1 HOT, 2 WARM, 3 COLD; binary 1 sends the frame, any
// other value the "$PVNK" sentence. 0 or 0x107.
uint32_t HD8XXX_SendStartWay(SerialPort port, int start_way, int binary);
uint32_t HD8XXX_SendAidTimeByBP(SerialPort port, const VkTimeAid *time);
uint32_t HD8XXX_SendAidPosByBP(SerialPort port, const VkPosAid *pos);
uint32_t HD8XXX_ClearEph(SerialPort port);
uint32_t HD8XXX_FactoryReset(SerialPort port);
uint32_t HD8XXX_SendAidTimeByNmea(SerialPort port, const VkTimeAid *time);
uint32_t HD8XXX_SendAidPosByNmea(SerialPort port, const VkPosAid *pos);
// Judges one read for the reply "<name>,OK*HH": 0, 0x200 or 0x202.
uint32_t HD8XXX_CheckNmeaCmdRsp(const char *buf, uint32_t len, const char *name);

// The port the YMODEM adapters talk through; the offline flow sets it.
void hd8xxx_use_port(SerialPort port);
// YMODEM adapters over that port.
int HD8XXX_SerialSend(const uint8_t *data, uint32_t len);
int HD8XXX_SerialRecv(uint8_t *buf, uint32_t len);
void HD8XXX_Delay(uint32_t ms);
void HD8XXX_CleatSerialRecvBuff(SerialPort port);

// The frames as they go on the wire, for tests and the virtual receiver.
std::span<const uint8_t> hd8xxx_start_frame(int start_way);  // 9 bytes; empty for others
extern const uint8_t kHd8xxxClearFrame[16];
extern const uint8_t kHd8xxxFactoryResetFrame[16];
extern const uint8_t kHd8xxxYmodemFrame[8];
// Aid frames: 28 and 25 bytes into out; return the length.
uint32_t hd8xxx_time_frame(const VkDateTime &t, int leap, uint8_t out[28]);
uint32_t hd8xxx_pos_frame(const VkPosAid *pos, uint8_t out[25]);

// --- offline RTCM files and the YMODEM download ---------------------------------------------

uint32_t HD8XXX_GetOfflineEphInfo(const char *path);
int HD8XXX_GetOfflineEphType(const char *name);
int HD8XXX_DivideOfflineEphFile(const char *src, const char *gps, const char *bds);
uint32_t HD8XXX_WaitYmodemReady(SerialPort port, uint32_t timeout_ms);
uint32_t HD8XXX_EphYmodemTransfer(const char *path, const char *flash_name);
uint32_t HD8XXX_DownloadOfflineEph(SerialPort port, const char *path);
void HD8XXX_SetOffEphTotalSize(uint32_t size);
uint32_t HD8XXX_GetOffEphTotalSize();

// --- online ".hdb" files --------------------------------------------------------------------

uint32_t HD8XXX_GetOnlineEphInfo(const char *path);
int HD8XXX_GetOnlineEphType(const char *name);
uint32_t HD8XXX_DivideOnlineEphFile(const char *src, const char *gps, const char *bds);
uint32_t HD8XXX_SendEphData_Internal(SerialPort port, const char *path, uint32_t total,
                                     uint32_t record_size, uint8_t id);
uint32_t HD8XXX_SendEphData(SerialPort port, const char *path);

// --- entries ---------------------------------------------------------------------------------

uint32_t HD8XXX_AgnssOnline(int argc, char **argv);
uint32_t HD8XXX_AgnssOffline(int argc, char **argv);
