// MJ7XXX platform: an online entry that speaks the HD8XXX "$PVNK" sentences
// only, checks the receiver's "$GNRMC" output after a restart, and adds the
// combined initial-aiding sentence "$PVNKAIDINI".
#pragma once

#include <cstdint>

#include "core/options.h"
#include "serial/serial.h"

uint32_t MJ7XXX_SendStartWay(SerialPort port, int start_way);
// Waits up to 5000 ms for a "$GNRMC" sentence with a field "V": 0, 0x200, 0x202.
uint32_t MJ7XXX_CheckCmdRsp(SerialPort port);
uint32_t MJ7XXX_CheckCmdContain(const char *buf, uint32_t len, const char *name, const char *field);
uint32_t MJ7XXX_CheckNmeaCmdRsp(const char *buf, uint32_t len, const char *name);
uint32_t MJ7XXX_SendAidPosByNmea(SerialPort port, const VkPosAid *pos);
uint32_t MJ7XXX_SendAidTimeByNmea(SerialPort port, const VkTimeAid *time);
uint32_t MJ7XXX_SendAidInfoByNmea(SerialPort port, const VkAidInit *aidi);
uint32_t MJ7XXX_AgnssOnline(int argc, char **argv);
