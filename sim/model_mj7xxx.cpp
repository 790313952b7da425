// MJ7XXX receiver model.
//
// The module speaks what the HD8XXX speaks (see sim/model_hd.h): the HD
// binary frames, the "$PVNK" aiding sentences (it is the one the tool sends
// "$PVNKAIDINI" to) and the YMODEM download. It answers a restart sentence
// ("$PVNKCOLD", "$PVNKWARM", "$PVNKHOT") by restarting: its position output
// begins again with "$GNRMC,000001.00,V,,,,,,,,,,N*HH\r\n", status V since a
// receiver that has just restarted has no fix (the rmc_status fault makes it
// claim one with 'A').

#include "sim/model_hd.h"

namespace {

const HdSimDialect kDialect = {"mj7xxx", true};

void *create() { return hd_sim_create(&kDialect); }

}  // namespace

const SimModel sim_model_mj7xxx = {"mj7xxx",      create,           hd_sim_destroy, hd_sim_feed,
                                   hd_sim_commit, hd_sim_configure, hd_sim_tick};
