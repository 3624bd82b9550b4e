// Unpacking and packing of the packed form, and the substitute characters.
//
// Any packed text within the form's limits unpacks to the fields a plain
// reading finds; packing them writes the canonical text, which unpacks and
// packs to itself. Mapping to the substitute characters and back restores
// a text that held none of them.
#include "fuzz_support.hpp"

namespace {

std::string pack(char **slots, std::size_t fieldBytes) {
    auto out = fuzz::buffer("", fieldBytes + fuzz::kFields);  // the size packing documents
    cl_ORNArray2Tf(slots, out.data());
    return out.data();
}

void expect_slots(char **slots, const fuzz::Fields &f, const std::string &tf) {
    for (int i = 0; i < fuzz::kFields; ++i) {
        const std::string &want = f[static_cast<std::size_t>(i)];
        const char *got = slots[i];
        if (want.empty() ? got != nullptr : got == nullptr || want != got)
            fuzz::fail("unpacking puts another text in a slot", tf, got ? got : "(null)");
    }
}

void check_substitutes(const std::string &text) {
    if (text.find_first_of("_!|;{}") != std::string::npos) return;
    auto s = fuzz::buffer(text);
    testkit::Outcome e = testkit::run([&] { cl_ConvertToSpecialChar(s.data()); });
    fuzz::expect(!e.escaped, "mapping to substitute characters escaped", text);
    fuzz::expect(std::string(s.data()).find_first_of(" ./,()") == std::string::npos,
                 "a real character survives the mapping to substitutes", s.data());
    e = testkit::run([&] { cl_ConvertSpecialChar(s.data()); });
    fuzz::expect(!e.escaped && text == s.data(), "substitute characters do not map back", text, s.data());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    fuzz::Input in = fuzz::split(data, size);
    fuzz::Fields f;
    if (!in.ok || !fuzz::fields_of(in.text, f)) return -1;
    check_substitutes(in.text);

    char **slots = nullptr;
    cl_UnPackToLargeArray(in.text.c_str(), &slots);
    expect_slots(slots, f, in.text);
    std::string y = pack(slots, fuzz::field_bytes(f));
    cl_FreeArray(slots);
    fuzz::expect(y == fuzz::pack_fields(f), "packing writes other than the canonical text", y, fuzz::pack_fields(f));

    cl_UnPackToLargeArray(y.c_str(), &slots);
    expect_slots(slots, f, y);
    std::string z = pack(slots, fuzz::field_bytes(f));
    cl_FreeArray(slots);
    fuzz::expect(y == z, "pack(unpack(x)) is not stable", y, z);
    return 0;
}
