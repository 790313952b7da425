// HD8XXX receiver model.
//
// The module takes the HD binary frames (restart, clear, aiding position and
// time, GPS and BDS ephemeris blocks from ".hdb" files, start of a download),
// the "$PVNKAIDPOS", "$PVNKAIDTIME" and "$PVNKAIDINI" aiding sentences and
// files over a YMODEM download; see sim/model_hd.h for all of it. A restart
// sentence ("$PVNKCOLD", "$PVNKWARM", "$PVNKHOT") is recorded and not
// answered: this receiver restarts without a word.

#include "sim/model_hd.h"

namespace {

const HdSimDialect kDialect = {"hd8xxx", false};

void *create() { return hd_sim_create(&kDialect); }

}  // namespace

const SimModel sim_model_hd8xxx = {"hd8xxx",      create,           hd_sim_destroy, hd_sim_feed,
                                   hd_sim_commit, hd_sim_configure, hd_sim_tick};
