// Declares and defines a platform's named EPO functions as thin entries into
// the shared engine. Both EPO platforms carry the same set of names; only the
// prefix and the dialect differ, so the set is written down once here.
#pragma once

#include "epo/epo.h"

#define EPO_DECLARE_NAMES(P)                                                                      \
    EpoInfo *P##_GetEpoInfoByDecodeFile(EpoInfo *info, const char *path);                         \
    void P##_PrintfEpoInfo(const EpoInfo *info);                                                  \
    void P##_TransferAgnssInfo(const EpoInfo *epo_info, VkAgnssInfo *agnss_info);                 \
    void P##_SetEpoType(int32_t type);                                                            \
    int32_t P##_GetEpoType();                                                                     \
    int32_t P##_GetSvPrnFromEpo(int32_t key, const uint8_t *record);                              \
    void P##_ParseEpoDataHeadFromGalileoOrBeidou(const char *hex_text, uint8_t *sv_list,          \
                                                 int max_bits);                                   \
    int32_t P##_GetEpoSysShortFromEpoType(int32_t type, char *dst, size_t size);                  \
    int32_t P##_GetOfflineEphTypeAndDayCnt(const char *file_name, int32_t *day_count);            \
    int32_t P##_GetOnlineEphType(const char *file_name);                                          \
    int32_t P##_GetEpoModeFromTable(int32_t type);                                                \
    uint32_t P##_SendStartWay(uint64_t port, int way);                                            \
    uint32_t P##_SendTimeByNmea(uint64_t port, const VkTimeAid *time);                            \
    uint32_t P##_SendPosByNmea(uint64_t port, const VkPosAid *pos);                               \
    uint32_t P##_QueryEpoDataStatusByNmea(uint64_t port);                                         \
    uint32_t P##_CleanFlashEpoByNmea(uint64_t port);                                              \
    uint32_t P##_SendEpoByNmea(uint64_t port, const uint8_t *record, int mode, int sv_index);     \
    uint32_t P##_ReadUartAndCheckNmeaRspWithTimeout(uint64_t port, const char *command_id,        \
                                                    uint32_t timeout_ms);                         \
    uint32_t P##_ReadUartAndCheckNmeaReportWithTimeout(uint64_t port, const char *expected,       \
                                                       uint32_t timeout_ms);                      \
    uint32_t P##_CheckNmeaCmdRsp(const char *buf, uint32_t len, const char *command_id);          \
    uint32_t P##_CheckNmeaRpt(const char *buf, uint32_t len, const char *expected);               \
    int P##_ProcessSerialData(char *buf, uint32_t *len, char *carry, uint32_t *carry_len,         \
                              uint32_t buf_size, uint32_t carry_size);                            \
    uint16_t P##_GetMsgIdWithBinType(int bin_type);                                               \
    uint32_t P##_PackageBinFrame(uint16_t msg_id, const uint8_t *payload, uint32_t len,           \
                                 uint8_t *out, uint32_t *inout_len);                              \
    uint32_t P##_CheckBinCmdRsp(uint64_t port, uint8_t *reply, uint16_t msg_id);                  \
    uint32_t P##_SendEpoByBp(uint64_t port, const uint8_t *frame, uint32_t len, uint16_t msg_id); \
    uint32_t P##_SendEpoBeginAndEnd(uint64_t port, const uint8_t *payload, uint32_t len,          \
                                    int bin_type);                                                \
    uint32_t P##_GetSvid(FILE *file, int32_t type, uint8_t *sv_list, int list_size,               \
                         uint32_t *header_bytes);                                                 \
    uint32_t P##_SendEphFile(uint64_t port, const char *path);                                    \
    uint32_t P##_SendEphData(uint64_t port, const char *path);                                    \
    uint32_t P##_AgnssOnline(int argc, char **argv);                                              \
    uint32_t P##_AgnssOffline(int argc, char **argv);

#define EPO_DEFINE_NAMES(P, D)                                                                     \
    EpoInfo *P##_GetEpoInfoByDecodeFile(EpoInfo *info, const char *path) {                         \
        return epo_decode_file(info, path);                                                        \
    }                                                                                              \
    void P##_PrintfEpoInfo(const EpoInfo *info) { epo_print_info(info); }                          \
    void P##_TransferAgnssInfo(const EpoInfo *epo_info, VkAgnssInfo *agnss_info) {                 \
        epo_to_agnss_info(epo_info, agnss_info);                                                   \
    }                                                                                              \
    void P##_SetEpoType(int32_t type) { epo_set_type(type); }                                      \
    int32_t P##_GetEpoType() { return epo_get_type(); }                                            \
    int32_t P##_GetSvPrnFromEpo(int32_t key, const uint8_t *record) {                              \
        return epo_prn_of_record((D).prn_by_mode ? key - 1 : key, record);                         \
    }                                                                                              \
    void P##_ParseEpoDataHeadFromGalileoOrBeidou(const char *hex_text, uint8_t *sv_list,           \
                                                 int max_bits) {                                   \
        int count = 0;                                                                             \
        epo_parse_header(hex_text, sv_list, max_bits, &count);                                     \
    }                                                                                              \
    int32_t P##_GetEpoSysShortFromEpoType(int32_t type, char *dst, size_t size) {                  \
        return epo_system_letter(&(D), type, dst, size);                                           \
    }                                                                                              \
    int32_t P##_GetOfflineEphTypeAndDayCnt(const char *file_name, int32_t *day_count) {            \
        return epo_offline_type(&(D), file_name, day_count);                                       \
    }                                                                                              \
    int32_t P##_GetOnlineEphType(const char *file_name) {                                          \
        return epo_online_type(&(D), file_name);                                                   \
    }                                                                                              \
    int32_t P##_GetEpoModeFromTable(int32_t type) { return epo_mode_of_type(&(D), type); }         \
    uint32_t P##_SendStartWay(uint64_t port, int way) {                                            \
        return epo_send_start_way(&(D), port, way);                                                \
    }                                                                                              \
    uint32_t P##_SendTimeByNmea(uint64_t port, const VkTimeAid *time) {                            \
        return epo_send_time(&(D), port, time);                                                    \
    }                                                                                              \
    uint32_t P##_SendPosByNmea(uint64_t port, const VkPosAid *pos) {                               \
        return epo_send_pos(&(D), port, pos);                                                      \
    }                                                                                              \
    uint32_t P##_QueryEpoDataStatusByNmea(uint64_t port) { return epo_query_status(&(D), port); }  \
    uint32_t P##_CleanFlashEpoByNmea(uint64_t port) { return epo_clear(&(D), port); }              \
    uint32_t P##_SendEpoByNmea(uint64_t port, const uint8_t *record, int mode, int sv_index) {     \
        return epo_send_record(&(D), port, record, mode, sv_index);                                \
    }                                                                                              \
    uint32_t P##_ReadUartAndCheckNmeaRspWithTimeout(uint64_t port, const char *command_id,         \
                                                    uint32_t timeout_ms) {                         \
        return epo_wait_ack(&(D), port, command_id, timeout_ms);                                   \
    }                                                                                              \
    uint32_t P##_ReadUartAndCheckNmeaReportWithTimeout(uint64_t port, const char *expected,        \
                                                       uint32_t timeout_ms) {                      \
        return epo_wait_report(&(D), port, expected, timeout_ms);                                  \
    }                                                                                              \
    uint32_t P##_CheckNmeaCmdRsp(const char *buf, uint32_t len, const char *command_id) {          \
        return (D).check_ack(buf, len, command_id, VK_ERR_COMMAND);                                \
    }                                                                                              \
    uint32_t P##_CheckNmeaRpt(const char *buf, uint32_t len, const char *expected) {               \
        return (D).check_report(buf, len, expected, VK_ERR_COMMAND);                               \
    }                                                                                              \
    int P##_ProcessSerialData(char *buf, uint32_t *len, char *carry, uint32_t *carry_len,          \
                              uint32_t buf_size, uint32_t carry_size) {                            \
        return Vk_ProcessSerialData(buf, len, carry, carry_len, buf_size, carry_size);             \
    }                                                                                              \
    uint16_t P##_GetMsgIdWithBinType(int bin_type) { return epo_msg_id(bin_type); }                \
    uint32_t P##_PackageBinFrame(uint16_t msg_id, const uint8_t *payload, uint32_t len,            \
                                 uint8_t *out, uint32_t *inout_len) {                              \
        return epo_package_frame(msg_id, payload, len, out, inout_len);                            \
    }                                                                                              \
    uint32_t P##_CheckBinCmdRsp(uint64_t port, uint8_t *reply, uint16_t msg_id) {                  \
        return epo_wait_bin_ack(port, reply, msg_id);                                              \
    }                                                                                              \
    uint32_t P##_SendEpoByBp(uint64_t port, const uint8_t *frame, uint32_t len, uint16_t msg_id) { \
        return epo_send_frame(port, frame, len, msg_id);                                           \
    }                                                                                              \
    uint32_t P##_SendEpoBeginAndEnd(uint64_t port, const uint8_t *payload, uint32_t len,           \
                                    int bin_type) {                                                \
        return epo_send_begin_end(port, payload, len, bin_type);                                   \
    }                                                                                              \
    uint32_t P##_GetSvid(FILE *file, int32_t type, uint8_t *sv_list, int list_size,                \
                         uint32_t *header_bytes) {                                                 \
        int count = 0;                                                                             \
        return epo_read_sv_list(&(D), file, type, sv_list, list_size, &count, header_bytes);       \
    }                                                                                              \
    uint32_t P##_SendEphFile(uint64_t port, const char *path) {                                    \
        return epo_send_file_offline(&(D), port, path);                                            \
    }                                                                                              \
    uint32_t P##_SendEphData(uint64_t port, const char *path) {                                    \
        return epo_send_file_online(&(D), port, path);                                             \
    }                                                                                              \
    uint32_t P##_AgnssOnline(int argc, char **argv) { return epo_run_online(&(D), argc, argv); }   \
    uint32_t P##_AgnssOffline(int argc, char **argv) { return epo_run_offline(&(D), argc, argv); }
