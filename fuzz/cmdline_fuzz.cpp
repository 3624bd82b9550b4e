// The command-line conversion: a positional name or mail node followed by
// attribute=value pairs, into packed text, a field array or directory
// attribute text.
//
// Flags: bit 0 allowMarker, bit 1 mail-node form, bits 2-3 the caller's
// character set, bit 4 the tag-mapping argument, bit 5 numeric attribute
// text. The packed text, the field array and the attribute text of one
// argument are made from fresh copies; the first two must name the same
// fields, the packed text must be the same above level 9, where no short
// cut is taken, and the name's ascii-encoded text must read back to it.
#include "fuzz_support.hpp"

namespace {

// Keeps the positional text (4095), one segment (4078) and the packed text
// of the positional part (4079) within the conversion's working storage:
// parsing adds at most 250 bytes of separators and default types.
constexpr std::size_t kTextMax = 3072;

std::size_t out_size(const std::string &text) { return 16 * text.size() + 8192; }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    fuzz::Input in = fuzz::split(data, size);
    if (!in.ok || in.text.size() > kTextMax) return -1;
    const int marker = in.flags & 1;
    const int mailNode = (in.flags >> 1) & 1;
    ccs_Descriptor *cs = fuzz::charset(in.flags >> 2);
    const int tags = (in.flags >> 4) & 1;
    const int numeric = (in.flags >> 5) & 1;

    auto typed = fuzz::buffer(in.text);
    auto out = fuzz::buffer("", out_size(in.text));
    testkit::Outcome e =
        testkit::run([&] { cl_MainConvCltoORN(typed.data(), out.data(), tags, marker, cs, 0, mailNode); });
    std::string tf = e.escaped ? std::string() : std::string(out.data());
    fuzz::Fields name;
    if (!e.escaped)
        fuzz::expect(fuzz::fields_of(tf, name, fuzz::kAnyLength), "the conversion wrote text outside the packed form",
                     tf);

    // Above level 9 nothing is taken by a short cut: the same text or escape.
    auto typedTraced = fuzz::buffer(in.text);
    auto outTraced = fuzz::buffer("", out_size(in.text));
    const int level = er_SubSystemLoggingLevel;
    er_SubSystemLoggingLevel = 10;
    testkit::Outcome traced = testkit::run(
        [&] { cl_MainConvCltoORN(typedTraced.data(), outTraced.data(), tags, marker, cs, 0, mailNode); });
    er_SubSystemLoggingLevel = level;
    fuzz::expect(e.escaped == traced.escaped && e.reason == traced.reason &&
                     (e.escaped || tf == outTraced.data()),
                 "the conversion reads otherwise above level 9", in.text);

    auto typed2 = fuzz::buffer(in.text);
    char **array = nullptr;
    char unused[1] = "";
    testkit::Outcome e2 = testkit::run([&] {
        array = static_cast<char **>(cl_MainConvCltoORN(typed2.data(), unused, tags, marker, cs, 1, mailNode));
    });
    fuzz::expect(e.escaped == e2.escaped && e.reason == e2.reason,
                 "the array form fails otherwise than the packed form", in.text);
    if (!e2.escaped) {
        fuzz::Fields slots;
        for (int i = 0; i < fuzz::kFields; ++i)
            if (array[i]) slots[static_cast<std::size_t>(i)] = array[i];
        cl_FreeArray(array);
        fuzz::expect_same_name(name, slots, "the array form names other fields than the packed form");
    }

    auto typed3 = fuzz::buffer(in.text);
    auto da = fuzz::buffer("", out_size(in.text));
    testkit::run([&] {
        if (mailNode)
            cl_ConvClMntoDa(typed3.data(), da.data(), tags, marker, numeric, cs);
        else
            cl_ConvCltoDa(typed3.data(), da.data(), tags, marker, numeric, cs);
    });

    if (!e.escaped) fuzz::check_ascii_round_trip(tf.c_str());
    return 0;
}
