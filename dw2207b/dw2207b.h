// DW2207B platform: "$RESET", "$AIDTIME" and "$AIDPOS" sentences, each
// acknowledged by "$OK*04", and RTCM 3 ephemeris frames streamed unacknowledged.
#pragma once

#include <cstdint>

#include "core/options.h"
#include "serial/serial.h"

// The platform's own meanings of the shared range.
enum : uint32_t {
    DW2207B_ERR_WRITE_TIME = 0x201,  // the time sentence was not written whole
    DW2207B_ERR_WRITE_POS = 0x202,   // the position sentence was not written whole
    DW2207B_ERR_EPH_OPEN = 0x204,    // the ephemeris file cannot be opened
    DW2207B_ERR_EPH_FILE = 0x206,    // bad frame header, bad CRC or a truncated frame
};

uint32_t DW2207B_SendStartWay(SerialPort port, int start_way);
uint32_t DW2207B_SendAidTime(SerialPort port, const VkTimeAid *time);
uint32_t DW2207B_SendAidPos(SerialPort port, const VkPosAid *pos);
uint32_t DW2207B_SendEphData(SerialPort port, const char *path);

// The platform's only entry; the registry places it in the online slot.
uint32_t DW2207B_AgnssOffline(int argc, char **argv);
