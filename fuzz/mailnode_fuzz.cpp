// The display tidy of a mail node, cl_SetNodeForDisplay.
//
// The text it leaves is the one a plain reading of the rule gives: the
// trailing commas of the units go, then the trailing slashes of the part
// from the first '/' on. Tidying a tidy text changes nothing.
#include "fuzz_support.hpp"

namespace {

constexpr std::size_t kTextMax = 4095;  // the work buffer holds 4096 bytes

std::string tidy(const std::string &text) {
    std::size_t slash = text.find('/');
    std::string units = text.substr(0, slash);
    units.erase(units.find_last_not_of(',') + 1);  // npos + 1 is 0: all commas go
    if (slash == std::string::npos) return units;
    std::string rest = text.substr(slash);
    rest.erase(rest.find_last_not_of('/') + 1);
    return units + rest;
}

std::string display(const std::string &text) {
    auto b = fuzz::buffer(text);
    testkit::Outcome e = testkit::run([&] { cl_SetNodeForDisplay(b.data()); });
    fuzz::expect(!e.escaped, "cl_SetNodeForDisplay escaped", text);
    return b.data();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    fuzz::Input in = fuzz::split(data, size);
    if (!in.ok || in.text.size() > kTextMax) return -1;
    std::string once = display(in.text);
    fuzz::expect(once == tidy(in.text), "the tidy mail node differs from the rule's", once, tidy(in.text));
    fuzz::expect(display(once) == once, "tidying a tidy mail node changes it", once);
    return 0;
}
