// RZ610MXXXX receiver model.
//
// The module is commanded with "$PVNK..." sentences and answers each with its
// own address and a verdict: "$<address>,OK*HH\r\n" when it takes the
// command, "$<address>,FAIL*HH\r\n" when it refuses it (bad checksum,
// malformed or unknown command, or the refuse faults). What it takes:
//
//   $PVNKHOT, $PVNKWARM, $PVNKCOLD   restart: "$PVNKHOT,OK*HH\r\n" (etc.), then
//                            the first position output after the restart,
//                            "$GNGGA,000001.00,,,,,0,00,99.99,,,,,,*HH\r\n"
//                            (no fix yet), both in one answer
//   $PVNKAIDTIME,1,leap,Y,M,D,h,m,s,0,,0   reference time: eleven fields,
//                            integers but for the tenth, which may be empty
//   $PVNKAIDPOS,1,lat,lon,alt,acc   reference position: an integer, then
//                            four numbers (read as strtod reads them)
//   $PVNKEPOCLR              clear the stored EPO data (the records held are
//                            forgotten, so the status counts start from 0)
//   $PVNKEPO,<mode>,<prn>,<w0>,..,<w17>   one EPO record: mode and PRN in
//                            decimal, the record's 18 little-endian 32-bit
//                            words as exactly eight hexadecimal digits each,
//                            so the 72 bytes are rebuilt exactly
//   $PVNKEPOGETSTATUS,<sys>  EPO status: answered
//                            "$PVNKEPOGETSTATUS,<sys>,<count>*HH\r\n", count
//                            being the number of records held for that system
//                            since the last clear (1 GPS, 2 GLONASS,
//                            3 Galileo, 4 BeiDou, 5 QZSS); refused with
//                            "$PVNKEPOGETSTATUS,FAIL*HH\r\n"
//
// A record's system is its mode (1 GPS .. 5 QZSS) when it comes in a
// sentence, and the system of the open begin/end block ("G" 1, "R" 2, "E" 3,
// "C" 4, "J" 5) when it comes in a binary frame. A record sentence whose PRN
// is not what the PRN rule of its mode makes of the record's SVID (mode 1 S,
// 2 S-64, 3 the Galileo rule, 4 the BeiDou rule, any other 0) is counted in
// prn_errors and still taken.
//
// Sentences of other talkers ("$PAIR...", "$GPGGA") are recorded and not
// answered. Binary frames: see model_epo.h.

#include "sim/model_epo.h"

namespace {

bool is_pvnk_address(const std::string &a) {
    if (a.size() <= 4 || a.compare(0, 4, "PVNK") != 0) return false;
    for (char c : a)
        if (!((c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9'))) return false;
    return true;
}

std::string verdict(const std::string &address, bool ok) {
    return sim_sentence_of(address + (ok ? ",OK" : ",FAIL"));
}

std::string refusal_of(const std::string &address) {
    return is_pvnk_address(address) ? verdict(address, false) : std::string();
}

int letter_system(char letter) {
    switch (letter) {
        case 'G': return 1;
        case 'R': return 2;
        case 'E': return 3;
        case 'C': return 4;
        case 'J': return 5;
        default: return -1;
    }
}

const std::string &restart_position() {
    static const std::string s = sim_sentence_of("GNGGA,000001.00,,,,,0,00,99.99,,,,,,");
    return s;
}

bool time_fields(const std::vector<std::string> &f) {
    if (f.size() != 12) return false;
    for (size_t i = 1; i < f.size(); ++i) {
        if (i == 10 && f[i].empty()) continue;  // the receiver leaves this one open
        if (!epo_sim_int(f[i], nullptr)) return false;
    }
    return true;
}

// "$PVNKEPO,<mode>,<prn>,<18 x %08X>".
bool take_record(const std::vector<std::string> &f, EpoAnswer *a) {
    if (f.size() != 21) return false;
    long mode = 0, prn = 0;
    if (!epo_sim_int(f[1], &mode) || !epo_sim_int(f[2], &prn)) return false;
    return epo_sim_take_record(f, 8, mode >= 1 && mode <= 5 ? int(mode) : -1, int32_t(mode - 1),
                               prn, a);
}

// f[0] is a "PVNK..." address.
bool command(const EpoSimState *st, const std::vector<std::string> &f, EpoAnswer *a) {
    const std::string &address = f[0];
    a->reply = verdict(address, true);
    if (address == "PVNKHOT" || address == "PVNKWARM" || address == "PVNKCOLD") {
        a->reply += restart_position();
        return f.size() == 1;
    }
    if (address == "PVNKAIDTIME") return time_fields(f);
    if (address == "PVNKAIDPOS")
        return f.size() == 6 && epo_sim_int(f[1], nullptr) && epo_sim_numbers(f, 2);
    if (address == "PVNKEPOCLR") {
        a->effect.kind = EpoEffectKind::Clear;
        return f.size() == 1;
    }
    if (address == "PVNKEPO") return take_record(f, a);
    if (address == "PVNKEPOGETSTATUS") return epo_sim_status(st, f, a);
    return false;
}

const EpoSimDialect kDialect = {"rz610mxxxx", "PVNKEPO", command, refusal_of, letter_system};

void *create() { return epo_sim_create(&kDialect); }

}  // namespace

const SimModel sim_model_rz610mxxxx = {"rz610mxxxx", create, epo_sim_destroy, epo_sim_feed,
                                       epo_sim_commit};
