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

#include <cstdio>

#include "sim/model_epo.h"

namespace {

bool is_pair_address(const std::string &a) {
    if (a.size() != 7 || a.compare(0, 4, "PAIR") != 0) return false;
    for (size_t i = 4; i < 7; ++i)
        if (a[i] < '0' || a[i] > '9') return false;
    return true;
}

std::string ack(const std::string &number, int result) {
    return epo_sim_sentence("PAIR001," + number + "," + std::to_string(result));
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

bool all_numbers(const std::vector<std::string> &f, size_t from) {
    for (size_t i = from; i < f.size(); ++i)
        if (!epo_sim_number(f[i])) return false;
    return true;
}

// "$PAIR471,<mode>,<prn>,<18 words>", every field hexadecimal.
bool take_record(const std::vector<std::string> &f, EpoEffect *e, char *note, size_t note_size) {
    if (f.size() != 21) return false;
    uint32_t mode = 0, prn = 0, words[18];
    if (!epo_sim_hex32(f[1], 1, 8, &mode) || !epo_sim_hex32(f[2], 1, 8, &prn)) return false;
    for (int w = 0; w < 18; ++w)
        if (!epo_sim_hex32(f[size_t(3 + w)], 1, 8, &words[w])) return false;
    e->kind = EpoEffectKind::Record;
    e->record = epo_sim_record_of_words(words);
    e->system = mode <= 3 ? int(mode) : -1;
    int32_t want = epo_sim_prn(int32_t(mode), e->record[3]);
    e->prn_error = int32_t(prn) != want;
    if (e->prn_error) {
        std::snprintf(note, note_size, " (PRN %d, SVID %u gives %d)", int32_t(prn), unsigned(e->record[3]), want);
    }
    return true;
}

void sentence(const EpoSimState *st, const std::string &body, SimUnit *u, EpoEffect *e) {
    std::vector<std::string> f = epo_sim_split(body, ',');
    const std::string &address = f[0];
    if (!is_pair_address(address)) {
        u->describe = "sentence not for this receiver $" + body;
        return;
    }
    const std::string number = address.substr(4);
    u->refusal = ack(number, 1);
    std::string reply;
    char note[96] = "";
    bool ok = false;
    if (number == "004" || number == "005" || number == "006" || number == "007") {
        ok = f.size() == 1;
        reply = ack(number, 0) + epo_sim_sentence("PAIR011," + number + ",0");
    } else if (number == "590") {
        ok = f.size() == 7 && all_ints(f, 1);
        reply = ack(number, 0);
    } else if (number == "600") {
        ok = f.size() == 8 && all_numbers(f, 1);
        reply = ack(number, 0);
    } else if (number == "472") {
        ok = f.size() == 1;
        if (ok) e->kind = EpoEffectKind::Clear;
        reply = ack(number, 0);
    } else if (number == "471") {
        ok = take_record(f, e, note, sizeof note);
        reply = ack(number, 0);
    } else if (number == "470") {
        long system = 0;
        ok = f.size() == 2 && epo_sim_int(f[1], &system);
        if (ok) reply = epo_sim_sentence("PAIR470," + f[1] + "," + std::to_string(epo_sim_stored(st, system)));
    }
    if (!ok) *e = EpoEffect();
    u->reply = ok ? reply : u->refusal;
    u->describe = "sentence $" + body + note + (ok ? "" : " (malformed or unknown: refused)");
}

const EpoSimDialect kDialect = {"ag33xx", "PAIR471", sentence, refusal_of, letter_system};

void *create() { return epo_sim_create(&kDialect); }

}  // namespace

const SimModel sim_model_ag33xx = {"ag33xx", create, epo_sim_destroy, epo_sim_feed, epo_sim_commit};
