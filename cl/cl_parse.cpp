// Typed personal names, mail nodes and local addresses into packed fields.
//
// One scan serves all three grammars: the personal name alone
// (cl_ParseORN), a personal name optionally followed by '/' and a mail node
// (cl_ParseNameLoclAddr2), and a mail node typed by itself (cl_ParseLoclAddr).
// Short cut (shortcut_allowed): IllegalCharacter's table is read inline.
// They differ only in a few rules (Rules below). The typed text is tidied by
// RemoveRedundantSpaces first and its substitute characters are replaced in
// place as the scan passes them; the result buffer is written only once the
// whole text has been accepted, so a refused name leaves it untouched.
#include <array>
#include <cstring>
#include <string_view>

#include "cl.h"
#include "frame.hpp"
#include "name_parse.hpp"
#include "packed.hpp"
#include "substitute.hpp"

namespace cl {
namespace {

constexpr const char kSourceFile[] = "cl/cl_parse";
constexpr int kGroup = 100;

enum Reason : int {
    kTooManyUnits = 8003,
    kUnitTooLong = 8004,
    kSpaceOrSlashInNode = 8005,
    kSurnameTooLong = 8006,
    kGivenNameTooLong = 8007,
    kGenerationTooLong = 8008,
    kInitialsTooLong = 8009,
    kPeriodInNode = 8010,
    kCommaInName = 8011,
    kSecondSurname = 8012,
    kIllegalCharacter = 8013,
    kNoSurname = 8014,
    kNoMailNode = 8016,
    kEmptyUnit = 8082,
};

// Upper bounds of the X.400 personal-name attributes and of a unit.
constexpr int kSurnameMax = 40;
constexpr int kGivenNameMax = 16;
constexpr int kInitialsMax = 5;
constexpr int kGenerationMax = 3;
constexpr int kUnitMax = 32;
constexpr int kUnits = 4;

// The 200-byte work area of one call: each slot holds its field's upper
// bound plus the terminator, and every store is checked against it first.
struct WorkArea {
    char surname[kSurnameMax + 1];
    char given[kGivenNameMax + 1];
    char initials[kInitialsMax + 1];
    char generation[kGenerationMax + 1];
    char units[kUnits][kUnitMax + 1];
};
static_assert(sizeof(WorkArea) == 200);

// Largest results: the personal name with its four separators (69 bytes);
// personal name and four units joined by seven separators (200 bytes).
constexpr int kNameFields = ORN_UNIT1;  // the personal name: fields 0 to 3
constexpr int kParsedFields = ORN_UNIT1 + ORN_UNITS;  // the personal name and the units

// Personal-name fields seen during a scan (set even when what was stored is empty).
enum Seen : unsigned { kSurnameSeen = 1, kGivenSeen = 2, kInitialsSeen = 4, kGenerationSeen = 8 };

// Character set: PrintableString with the space, plus the marker byte.
constexpr std::string_view kPrintable =
    "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789'()+,-./:=? ";

constexpr std::array<bool, 256> make_legal() {
    std::array<bool, 256> legal{};
    for (char c : kPrintable) legal[static_cast<unsigned char>(c)] = true;
    legal[static_cast<unsigned char>(kMarker)] = true;
    return legal;
}
constexpr std::array<bool, 256> kLegal = make_legal();

int IllegalCharacter(char c) {
    Trace t(kTrace19, "IllegalCharacter");
    return t.exit(kLegal[static_cast<unsigned char>(c)] ? 0 : 1);
}

// What a byte of the typed text is to the scan. Ordinary bytes belong to
// the word when IllegalCharacter accepts them; the substitutes stand for
// their real characters (cl_ConvertSpecialChar's mapping).
enum ByteClass : unsigned char {
    kLegalByte,
    kIllegalByte,
    kSubstituteByte,
    kEndByte,
    kSpaceByte,
    kPeriodByte,
    kSlashByte,
    kCommaByte,
    kMarkerByte,
};

constexpr std::array<ByteClass, 256> make_classes() {
    std::array<ByteClass, 256> classes{};
    for (int c = 0; c < 256; ++c) classes[c] = kLegal[c] ? kLegalByte : kIllegalByte;
    for (char c : std::string_view(kSubstituteChars)) classes[static_cast<unsigned char>(c)] = kSubstituteByte;
    classes[0] = kEndByte;
    classes[' '] = kSpaceByte;
    classes['.'] = kPeriodByte;
    classes['/'] = kSlashByte;
    classes[','] = kCommaByte;
    classes[static_cast<unsigned char>(kMarker)] = kMarkerByte;
    return classes;
}
constexpr std::array<ByteClass, 256> kByteClass = make_classes();

// Removes leading and trailing spaces, runs of spaces, spaces around ',' and
// '/', and spaces before and after '.'. The text before the current position
// is final, so the deletions are simulated in one pass: `cur` is the
// character at the position, `next` the index of the one after it. The
// text's terminator is at *length, so the byte after the last is its NUL.
void RemoveRedundantSpaces(char *text, int *length) {
    Trace t(kTrace19, "RemoveRedundantSpaces");
    int read = 0;
    while (text[read] == ' ') ++read;
    int write = 0;
    if (read == 0) {
        // Without leading spaces, everything before the byte that precedes
        // the first space stays where it is: the pass starts there.
        const char *space = first_of(text, static_cast<std::size_t>(*length), ' ');
        if (!space) return t.exit();  // nothing to remove
        read = write = static_cast<int>(space - text) - 1;
    }
    char cur = text[read];
    int next = read + 1;
    while (cur != '\0') {
        const char after = text[next];
        if (cur != ' ' && after != ' ') {  // most bytes: kept, and no space follows
            text[write++] = cur;
            cur = after;
            ++next;
            continue;
        }
        bool drop_cur = (cur == ' ' && (after == ' ' || after == ',' || after == '/' || after == '\0' || after == '.'));
        bool drop_after = !drop_cur && after == ' ' && (cur == ',' || cur == '.' || cur == '/');
        if (drop_cur) {
            cur = after;
            ++next;
        } else if (drop_after) {
            ++next;
        } else {
            text[write++] = cur;
            cur = after;
            ++next;
        }
    }
    text[write] = '\0';
    *length = write;
    t.exit();
}

// How the three grammars differ.
struct Rules {
    bool node_allowed;     // '/' opens the mail node; otherwise it is illegal
    bool marker_allowed;   // byte 0x1F belongs to the word; otherwise illegal
    bool empty_unit_rule;  // reason 8082 for a non-empty unit after an empty one
    int first_unit;        // -1: the text starts with a personal name
};

// A fixed field of the work area with its bound and its current length.
struct Slot {
    char *data;
    int max;
    int *length;
};

class Scan {
public:
    // A field of the work area is read as far as its length, and its first
    // byte as "is it empty", so only the first bytes start out cleared.
    Scan(char *text, Rules rules) : text_(text), rules_(rules), unit_(rules.first_unit) {
        work_.surname[0] = work_.given[0] = work_.initials[0] = work_.generation[0] = '\0';
        for (auto &unit : work_.units) unit[0] = '\0';
    }

    // Scans up to and including the terminator; escapes at the first fault.
    // Ordinary bytes are judged by IllegalCharacter's table directly when
    // the short cut is allowed, otherwise by calling it, so that each leaves
    // its trace records.
    void run() {
        const bool traced = !shortcut_allowed();
        for (int pos = 0;; ++pos) {
            const char c = text_[pos];
            const auto cls = kByteClass[static_cast<unsigned char>(c)];
            if (cls == kLegalByte && !traced) continue;  // most bytes: one well-predicted test
            switch (cls) {
                case kLegalByte:
                    if (traced && IllegalCharacter(c)) CL_RAISE(kGroup, kIllegalCharacter);
                    break;
                case kIllegalByte:
                    if (!traced || IllegalCharacter(c)) CL_RAISE(kGroup, kIllegalCharacter);
                    break;
                case kSubstituteByte:
                    text_[pos] = map_byte(c, kFromSubstitute);  // part of the word, never a separator
                    break;
                case kEndByte: end_event(pos); return;
                case kSpaceByte: space(pos); break;
                case kPeriodByte: period(pos); break;
                case kSlashByte: slash(pos); break;
                case kCommaByte: comma(pos); break;
                case kMarkerByte:
                    if (!rules_.marker_allowed) CL_RAISE(kGroup, kIllegalCharacter);
                    break;
            }
        }
    }

    // After a scan that may have read a mail node: an empty first unit makes
    // the mail node absent, unless a second unit follows it.
    void settle_mail_node() {
        if (unit_ < 0 || work_.units[0][0] != '\0') return;
        if (work_.units[1][0] != '\0') CL_RAISE(kGroup, kEmptyUnit);
        unit_ = -1;
    }

    bool has_mail_node() const { return unit_ >= 0; }
    const WorkArea &work() const { return work_; }

    // The fields in result order: surname, given name, initials, generation
    // qualifier, units 1 to 4.
    void fields(std::string_view (&out)[kParsedFields]) const {
        const char *data[kParsedFields] = {work_.surname, work_.given, work_.initials, work_.generation,
                                        work_.units[0], work_.units[1], work_.units[2], work_.units[3]};
        for (int f = 0; f < kParsedFields; ++f) out[f] = {data[f], static_cast<std::size_t>(lengths_[f])};
    }

private:
    std::string_view word(int pos) const { return {text_ + start_, static_cast<std::size_t>(pos - start_)}; }
    int length(int pos) const { return pos - start_; }
    bool seen(unsigned flag) const { return (seen_ & flag) != 0; }

    static void store(Slot slot, std::string_view w, int reason) {
        if (static_cast<int>(w.size()) > slot.max) CL_RAISE(kGroup, reason);
        std::memcpy(slot.data, w.data(), w.size());
        slot.data[w.size()] = '\0';
        *slot.length = static_cast<int>(w.size());
    }
    static void append(Slot slot, std::string_view w, int reason) {
        const int have = *slot.length;
        if (have + static_cast<int>(w.size()) > slot.max) CL_RAISE(kGroup, reason);
        std::memcpy(slot.data + have, w.data(), w.size());
        slot.data[have + w.size()] = '\0';
        *slot.length = have + static_cast<int>(w.size());
    }
    Slot surname() { return {work_.surname, kSurnameMax, &lengths_[0]}; }
    Slot given() { return {work_.given, kGivenNameMax, &lengths_[1]}; }
    Slot initials() { return {work_.initials, kInitialsMax, &lengths_[2]}; }
    Slot generation() { return {work_.generation, kGenerationMax, &lengths_[3]}; }
    Slot unit(int u) { return {work_.units[u], kUnitMax, &lengths_[4 + u]}; }

    void store_surname(int pos) {
        store(surname(), word(pos), kSurnameTooLong);
        seen_ |= kSurnameSeen;
    }

    // A word ended by '.': a piece of the initials, or of the generation
    // qualifier once the surname is known.
    void period(int pos) {
        if (unit_ >= 0) CL_RAISE(kGroup, kPeriodInNode);
        if (seen(kSurnameSeen)) {
            append(generation(), word(pos), kGenerationTooLong);
            seen_ |= kGenerationSeen;
        } else {
            append(initials(), word(pos), kInitialsTooLong);
            seen_ |= kInitialsSeen;
        }
        start_ = pos + 1;
    }

    // A word ended by a space: the surname after a given name or initials;
    // otherwise the surname when only one period-ended word follows it (the
    // generation qualifier), else the given name. The look-ahead reads the
    // text as typed, up to the end or a '/'.
    void space(int pos) {
        if (unit_ >= 0) CL_RAISE(kGroup, kSpaceOrSlashInNode);
        if (seen(kGivenSeen) || seen(kInitialsSeen)) {
            if (seen(kSurnameSeen)) CL_RAISE(kGroup, kSecondSurname);
            store_surname(pos);
        } else {
            bool more_words = false;
            bool ends_in_period = false;
            for (int q = pos + 1; text_[q] != '\0' && text_[q] != '/'; ++q) {
                if (text_[q] == ' ') {
                    more_words = true;
                    break;
                }
                if (text_[q] == '.' && (text_[q + 1] == '\0' || text_[q + 1] == '/')) {
                    ends_in_period = true;
                    break;
                }
            }
            if (!more_words && ends_in_period) {
                store_surname(pos);
            } else {
                store(given(), word(pos), kGivenNameTooLong);
                seen_ |= kGivenSeen;
            }
        }
        start_ = pos + 1;
    }

    // The word that ends the personal name (at the end of the text or at
    // the '/' before the mail node) is the surname, unless a generation
    // qualifier already closed the name.
    void close_personal_name(int pos) {
        if (seen(kGenerationSeen)) return;  // whatever the word holds is dropped
        if (seen(kSurnameSeen)) CL_RAISE(kGroup, kSecondSurname);
        store_surname(pos);
    }

    void slash(int pos) {
        if (!rules_.node_allowed) CL_RAISE(kGroup, kIllegalCharacter);
        if (unit_ >= 0) CL_RAISE(kGroup, kSpaceOrSlashInNode);
        close_personal_name(pos);
        unit_ = 0;
        start_ = pos + 1;
    }

    void comma(int pos) {
        if (unit_ < 0) CL_RAISE(kGroup, kCommaInName);
        if (unit_ >= kUnits) CL_RAISE(kGroup, kTooManyUnits);
        if (length(pos) > kUnitMax) CL_RAISE(kGroup, kUnitTooLong);
        if (rules_.empty_unit_rule && unit_ >= 1 && length(pos) > 0 && work_.units[unit_ - 1][0] == '\0')
            CL_RAISE(kGroup, kEmptyUnit);
        store(unit(unit_), word(pos), kUnitTooLong);
        ++unit_;
        start_ = pos + 1;
    }

    void end_event(int pos) {
        if (unit_ >= kUnits) CL_RAISE(kGroup, kTooManyUnits);
        if (unit_ < 0)
            close_personal_name(pos);
        else
            store(unit(unit_), word(pos), kUnitTooLong);
    }

    char *text_;
    Rules rules_;
    int unit_;  // unit being read, 0 to 3; -1 in the personal name
    int start_ = 0;
    unsigned seen_ = 0;
    WorkArea work_;
    int lengths_[kParsedFields] = {};  // of the work area's fields, in result order
};
static_assert(std::is_trivially_destructible_v<Scan>);

// Writes count fields joined by the field separator, with one after the
// last when `closed`, and the terminator; returns the length written. With
// `noted`, the non-empty fields are noted there.
std::size_t join(char *result, const std::string_view *fields, int count, bool closed,
                 ParsedFields *noted = nullptr) {
    char *out = result;
    for (int i = 0; i < count; ++i) {
        if (i > 0) *out++ = kFieldSep;
        if (fields[i].empty()) continue;  // most fields of a typed name
        std::memcpy(out, fields[i].data(), fields[i].size());
        if (noted)
            noted->at[noted->count++] = {i, static_cast<std::uint16_t>(out - result),
                                         static_cast<std::uint16_t>(fields[i].size())};
        out += fields[i].size();
    }
    if (closed) *out++ = kFieldSep;
    *out = '\0';
    return static_cast<std::size_t>(out - result);
}

// Pre-pass and scan of a writable typed text of `length` bytes.
void tidy_and_scan(char *text, std::size_t length, Scan &scan) {
    int n = static_cast<int>(length);
    RemoveRedundantSpaces(text, &n);
    scan.run();
}

void parse_orn(char *name, char *result, int surname_required) {
    Scan scan(name, Rules{false, true, false, -1});
    tidy_and_scan(name, std::strlen(name), scan);
    if (surname_required && scan.work().surname[0] == '\0') CL_RAISE(kGroup, kNoSurname);
    std::string_view fields[kParsedFields];
    scan.fields(fields);
    join(result, fields, kNameFields, true);
}


void parse_local_address(char *text, char *result) {
    Scan scan(text, Rules{true, true, false, 0});
    tidy_and_scan(text, std::strlen(text), scan);
    if (scan.work().units[0][0] == '\0') CL_RAISE(kGroup, kNoMailNode);
    std::string_view fields[kParsedFields];
    scan.fields(fields);
    join(result, fields, kParsedFields, false);  // the personal-name fields are empty
}

// A byte that a plain word may hold: one the scan keeps as it is, other
// than '(', which the full-name parser reads as opening an extension
// attribute.
constexpr std::array<bool, 256> make_plain() {
    std::array<bool, 256> plain{};
    for (int c = 0; c < 256; ++c) plain[c] = kByteClass[c] == kLegalByte && c != '(';
    return plain;
}
constexpr std::array<bool, 256> kPlainByte = make_plain();

// The bytes of a segment up to its name-value byte: all but that, the
// segment's end and the terminator.
constexpr std::array<bool, 256> make_name_bytes() {
    std::array<bool, 256> name{};
    for (int c = 1; c < 256; ++c) name[c] = c != static_cast<unsigned char>(kSegmentEnd) && c != static_cast<unsigned char>(kNameValue);
    return name;
}
constexpr std::array<bool, 256> kNameByte = make_name_bytes();

// The length of the run at text of bytes that `in` holds; the terminator
// is in none of them.
std::size_t run_of(const std::array<bool, 256> &in, const char *text) {
    std::size_t n = 0;
    while (in[static_cast<unsigned char>(text[n])]) ++n;
    return n;
}

// Notes field `field` as the n bytes at offset k.
void note(ParsedFields &noted, int field, std::size_t k, std::size_t n) {
    noted.at[noted.count++] = {field, static_cast<std::uint16_t>(k), static_cast<std::uint16_t>(n)};
}

bool read_plain(const char *text, ParsedFields &noted, PlainPositional &part) {
    // The personal name: a surname, or a given name, one space and a surname.
    std::size_t at = 0;
    std::size_t surname = run_of(kPlainByte, text);
    std::size_t given = 0;
    if (surname > 0 && text[surname] == ' ') {
        given = surname;
        at = given + 1;
        surname = run_of(kPlainByte, text + at);
        if (given > static_cast<std::size_t>(kGivenNameMax)) return false;
    }
    if (surname == 0 || surname > static_cast<std::size_t>(kSurnameMax) || text[at + surname] != kSegmentEnd)
        return false;
    note(noted, 0, at, surname);
    if (given > 0) note(noted, 1, 0, given);
    std::size_t k = at + surname + 1;
    part.loneSlash = false;
    for (int unit = 0;; ++unit) {  // the second segment: units, or the attributes
        const std::size_t n = run_of(kPlainByte, text + k);
        const char after = text[k + n];
        if (unit == 0 && after == kNameValue) break;  // 'Smith/name=value'
        if (n == 0 || n > static_cast<std::size_t>(kUnitMax) || unit == kUnits) return false;
        note(noted, kNameFields + unit, k, n);
        k += n + 1;
        if (after == ',') continue;
        if (after != kSegmentEnd) return false;
        // The next segment must hold the attributes; the lone '/' before
        // them ends the positional part.
        if (text[k + run_of(kNameByte, text + k)] != kNameValue) return false;
        part.loneSlash = true;
        break;
    }
    part.attributes = k;
    return true;
}

}  // namespace

bool read_plain_positional(const char *text, ParsedFields &noted, PlainPositional &part) {
    noted.count = 0;
    if (!read_plain(text, noted, part)) {
        noted.count = 0;
        return false;
    }
    noted.complete = true;
    return true;
}

std::size_t parse_name_and_node(char *text, std::size_t length, char *result, bool allowMarker, bool *mailNode,
                                ParsedFields *noted) {
    Trace t(kTrace19, "cl_ParseNameLoclAddr2");
    Scan scan(text, Rules{true, allowMarker, true, -1});
    tidy_and_scan(text, length, scan);
    scan.settle_mail_node();
    std::string_view fields[kParsedFields];
    scan.fields(fields);
    if (noted) *noted = ParsedFields{};
    const std::size_t n = join(result, fields, kParsedFields, false, noted);
    if (noted) noted->complete = true;
    *mailNode = scan.has_mail_node();
    t.exit();
    return n;
}

}  // namespace cl

extern "C" {

void cl_ParseORN(char *name, char *result, int surnameRequired) {
    cl::Trace t(cl::kTrace19, "cl_ParseORN");
    cl::parse_orn(name, result, surnameRequired);
    t.exit();
}

void cl_ParseName(char *name, char *result) {
    cl::Trace t(cl::kTrace19, "cl_ParseName");
    cl_ParseORN(name, result, 1);
    t.exit();
}

int cl_ParseNameLoclAddr2(char *text, char *result, int allowMarker) {
    bool mailNode = false;
    cl::parse_name_and_node(text, std::strlen(text), result, allowMarker != 0, &mailNode);
    return mailNode ? 1 : 0;
}

int cl_ParseNameLoclAddr(char *text, char *result) {
    cl::Trace t(cl::kTrace19, "cl_ParseNameLoclAddr");
    return t.exit(cl_ParseNameLoclAddr2(text, result, 0));
}

void cl_ParseLoclAddr(char *text, char *result) {
    cl::Trace t(cl::kTrace19, "cl_ParseLoclAddr");
    cl::parse_local_address(text, result);
    t.exit();
}

}  // extern "C"
