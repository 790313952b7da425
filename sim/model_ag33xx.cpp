// AG33XX receiver model.
//
// The module is commanded with "$PAIR<nnn>" sentences and acknowledges each
// with "$PAIR001,<nnn>,<result>*HH\r\n": result 0 when it takes the command,
// 1 when it refuses it (bad checksum, malformed or unknown command, or the
// refuse faults). What it answers when it takes a command:
//
//   $PAIR004 .. $PAIR007     restart (hot, warm, cold, full cold): the
//                            acknowledgement, then the restart report
//                            "$PAIR011,<nnn>,0*HH\r\n" (restart <nnn> done,
//                            status 0), both in one answer
//   $PAIR590,Y,M,D,h,m,s     reference time, six integers
//   $PAIR600,lat,lon,alt,a,b,c,d   reference position, seven numbers (read as
//                            strtod reads them, so "nan" passes)
//   $PAIR472                 clear the stored EPO data (the records held are
//                            forgotten, so the status counts start from 0)
//   $PAIR471,<mode>,<prn>,<w0>,..,<w17>   one EPO record: 20 hexadecimal
//                            fields of 1 to 8 digits; the words are the
//                            record's 18 little-endian 32-bit words, so the
//                            72 bytes are rebuilt exactly
//   $PAIR470,<sys>           EPO status: answered "$PAIR470,<sys>,<count>*HH\r\n"
//                            instead of an acknowledgement, where count is the
//                            number of records held for that system since the
//                            last clear (system 0 GPS, 1 GLONASS, 2 Galileo,
//                            3 BeiDou)
//
// A record's system is its mode (0 GPS, 1 GLONASS, 2 Galileo, 3 BeiDou) when
// it comes in a sentence, and the system of the open begin/end block ("G" 0,
// "R" 1, "E" 2, "C" 3) when it comes in a binary frame. A record sentence
// whose PRN field is not what the PRN rule makes of the record's SVID, with
// the mode taken as the EPO type, is counted in prn_errors and still taken.
//
// Sentences of other talkers ("$GPGGA", "$PVNK...") are recorded and not
// answered. Binary frames: see model_epo.h.

#include "sim/model_epo.h"

namespace {

bool is_pair_address(const std::string &a) {
    if (a.size() != 7 || a.compare(0, 4, "PAIR") != 0) return false;
    for (size_t i = 4; i < 7; ++i)
        if (a[i] < '0' || a[i] > '9') return false;
    return true;
}

std::string ack(const std::string &number, int result) {
    return sim_sentence_of("PAIR001," + number + "," + std::to_string(result));
}

std::string refusal_of(const std::string &address) {
    return is_pair_address(address) ? ack(address.substr(4), 1) : std::string();
}

int letter_system(char letter) {
    switch (letter) {
        case 'G': return 0;
        case 'R': return 1;
        case 'E': return 2;
        case 'C': return 3;
        default: return -1;
    }
}

bool all_ints(const std::vector<std::string> &f, size_t from) {
    for (size_t i = from; i < f.size(); ++i)
        if (!epo_sim_int(f[i], nullptr)) return false;
    return true;
}

// "$PAIR471,<mode>,<prn>,<18 words>", every field hexadecimal.
bool take_record(const std::vector<std::string> &f, EpoAnswer *a) {
    if (f.size() != 21) return false;
    uint32_t mode = 0, prn = 0;
    if (!epo_sim_hex32(f[1], 1, 8, &mode) || !epo_sim_hex32(f[2], 1, 8, &prn)) return false;
    return epo_sim_take_record(f, 1, mode <= 3 ? int(mode) : -1, int32_t(mode), int32_t(prn), a);
}

// f[0] is a "PAIR<nnn>" address.
bool command(const EpoSimState *st, const std::vector<std::string> &f, EpoAnswer *a) {
    const std::string number = f[0].substr(4);
    a->reply = ack(number, 0);
    if (number == "004" || number == "005" || number == "006" || number == "007") {
        a->reply += sim_sentence_of("PAIR011," + number + ",0");
        return f.size() == 1;
    }
    if (number == "590") return f.size() == 7 && all_ints(f, 1);
    if (number == "600") return f.size() == 8 && epo_sim_numbers(f, 1);
    if (number == "472") {
        a->effect.kind = EpoEffectKind::Clear;
        return f.size() == 1;
    }
    if (number == "471") return take_record(f, a);
    if (number == "470") return epo_sim_status(st, f, a);
    return false;
}

const EpoSimDialect kDialect = {"ag33xx", "PAIR471", command, refusal_of, letter_system};

void *create() { return epo_sim_create(&kDialect); }

}  // namespace

const SimModel sim_model_ag33xx = {"ag33xx", create, epo_sim_destroy, epo_sim_feed, epo_sim_commit};
