// DW2207B platform: "$RESET", "$AIDTIME" and "$AIDPOS" sentences, each
// acknowledged by "$OK*04", and RTCM 3 ephemeris frames streamed unacknowledged.
#pragma once

#include <cstdint>

#include "core/options.h"

uint32_t DW2207B_ReadUartAndCheckNmeaRspWithTimeout(uint64_t handle, const char *expected,
                                                    uint32_t timeout_ms);
uint32_t DW2207B_SendStartWay(uint64_t handle, int start_way);
uint32_t DW2207B_SendAidTime(uint64_t handle, const VkTimeAid *time);
uint32_t DW2207B_SendAidPos(uint64_t handle, const VkPosAid *pos);
uint32_t DW2207B_SendEphData(uint64_t handle, const char *path);

// The platform's only entry; the platform table places it in the online slot.
uint32_t DW2207B_AgnssOffline(int argc, char **argv);
