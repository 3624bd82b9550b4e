// Route simplification and the removal of the counterpart fields, over
// packed text that the name library accepts.
//
// Flags: bit 0 picks cl_RemoveTxTFields instead of cl_SimplifyRoute. The
// fields left must be those a plain reading of the rule leaves, and the
// name must not grow.
#include "fuzz_support.hpp"

namespace {

bool wildcard(const std::string &field) { return !field.empty() && field[0] == '*'; }

// Where a field and its counterpart (i + 64) are both present, a wildcard
// gives way (the counterpart's when both are); a wildcard surname takes the
// rest of the personal name with it.
fuzz::Fields simplified(fuzz::Fields f) {
    for (std::size_t i = 0; i < 64; ++i) {
        std::string &own = f[i];
        std::string &other = f[i + 64];
        if (own.empty() || other.empty()) continue;
        if (wildcard(other))
            other.clear();
        else if (wildcard(own))
            own.clear();
    }
    if (wildcard(f[0]))
        for (std::size_t i = 1; i <= 3; ++i) f[i].clear();
    return f;
}

fuzz::Fields without_counterparts(fuzz::Fields f) {
    for (std::size_t i = 64; i <= 115; ++i) f[i].clear();
    f[128].clear();
    return f;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    fuzz::Input in = fuzz::split(data, size);
    fuzz::Fields before;
    if (!in.ok || !fuzz::fields_of(in.text, before)) return -1;
    nm_ParsedORN parsed;
    int status = 0;
    if (testkit::run([&] { nm_ParseORN(in.text.c_str(), &parsed, &status); }).escaped) return -1;

    const bool remove = in.flags & 1;
    auto orn = fuzz::buffer(in.text);  // fields are only removed: the name never needs more room
    testkit::Outcome e = testkit::run([&] {
        if (remove)
            cl_RemoveTxTFields(orn.data());
        else
            cl_SimplifyRoute(orn.data());
    });
    fuzz::expect(!e.escaped, "a name the name library reads makes the rewrite escape", in.text);
    std::string after_text = orn.data();
    fuzz::expect(after_text.size() <= in.text.size(), "the rewritten name grew", in.text, after_text);
    fuzz::Fields after;
    fuzz::expect(fuzz::fields_of(after_text, after), "the rewrite left text outside the packed form", after_text);
    fuzz::expect_same_name(remove ? without_counterparts(before) : simplified(before), after,
                           remove ? "other fields removed than the counterparts" : "the route simplifies otherwise");
    return 0;
}
