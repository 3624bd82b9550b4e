// Mail node display form, wildcard resolution and counterpart removal.
#include <gtest/gtest.h>

#include <map>
#include <string>

#include "nm.h"
#include "testkit.hpp"

namespace {

using testkit::show;

TEST(SetNodeForDisplay, DropsTrailingEmptyUnitsAndParts) {
    const std::pair<std::string, std::string> cases[] = {
        {"A,B,,", "A,B"},       {"A,,B", "A,,B"},   {",,,", ""},          {"A,B,,/C,D//", "A,B/C,D"},
        {"A/", "A"},            {"A,,/", "A"},      {"A//B/", "A//B"},    {"/C", "/C"},
        {",,/C", "/C"},         {"", ""},           {"A,B", "A,B"},       {"/", ""},
        {",/,", "/,"},          {"A/,/,//", "A/,/,"},
    };
    for (const auto &[in, out] : cases) {
        char buf[64];
        std::snprintf(buf, sizeof buf, "%s", in.c_str());
        cl_SetNodeForDisplay(buf);
        EXPECT_EQ(std::string(buf), out) << in;
    }
}

TEST(SetNodeForDisplay, TextBeyondTheWorkBufferIsCut) {
    std::string text(5000, 'a');
    cl_SetNodeForDisplay(text.data());
    EXPECT_EQ(std::string(text.c_str()), std::string(4095, 'a'));
}

// Builds an O/R name from field numbers and values through the name library.
std::string name_of(const std::map<int, std::string> &fields) {
    std::string buf(4096, '\0');
    nm_ParsedORN parsed;
    nm_InitORN(buf.data(), &parsed);
    for (const auto &[field, value] : fields) nm_PutFieldStr(buf.data(), &parsed, field, value.c_str());
    return buf.c_str();
}

std::map<int, std::string> fields_of(const std::string &orn) {
    nm_ParsedORN parsed;
    int status = 0;
    nm_ParseORN(orn.c_str(), &parsed, &status);
    std::map<int, std::string> out;
    for (int f = 0; f < NM_FIELDS; ++f) {
        char buf[4096];
        if (nm_GetFieldStr(orn.c_str(), &parsed, f, buf, sizeof buf)) out[f] = buf;
    }
    return out;
}

std::map<int, std::string> rewritten(void (*rewrite)(char *), const std::map<int, std::string> &fields) {
    std::string orn = name_of(fields);
    std::string buf = orn + std::string(8, '\0');
    rewrite(buf.data());
    EXPECT_LE(std::string(buf.c_str()).size(), orn.size()) << "fields are only removed";
    return fields_of(buf.c_str());
}

using Fields = std::map<int, std::string>;

TEST(SimplifyRoute, TheWildcardGivesWayToItsCounterpart) {
    const std::pair<Fields, Fields> cases[] = {
        {{{0, "Smith"}, {4, "*"}, {68, "Sales"}}, {{0, "Smith"}, {68, "Sales"}}},
        {{{0, "Smith"}, {4, "*"}, {68, "*"}}, {{0, "Smith"}, {4, "*"}}},
        {{{0, "Smith"}, {5, "Dev"}, {69, "*x"}}, {{0, "Smith"}, {5, "Dev"}}},
        {{{0, "Smith"}, {6, "*"}}, {{0, "Smith"}, {6, "*"}}},
        {{{0, "Smith"}, {7, "x*"}, {71, "y"}}, {{0, "Smith"}, {7, "x*"}, {71, "y"}}},
        {{{63, "*"}, {127, "Last"}}, {{127, "Last"}}},
        {{{0, "*"}, {1, "Jo"}, {2, "Q"}, {3, "Jr"}, {4, "Sales"}}, {{0, "*"}, {4, "Sales"}}},
        // The surname wildcard gave way to its counterpart: the rest stays.
        {{{0, "*"}, {1, "Jo"}, {64, "Smith"}}, {{1, "Jo"}, {64, "Smith"}}},
        {{{0, "*"}, {64, "*"}, {1, "Jo"}, {65, "Jo"}}, {{0, "*"}, {65, "Jo"}}},
    };
    for (const auto &[in, out] : cases) EXPECT_EQ(rewritten(cl_SimplifyRoute, in), out) << show(name_of(in));
}

TEST(RemoveTxTFields, RemovesSixtyFourToHundredFifteenAndField128) {
    Fields in{{0, "Smith"}, {63, "g2"}, {64, "u0"}, {100, "a"}, {115, "b"}, {116, "c"}, {120, "d"}, {127, "e"},
              {128, "f"}, {129, "g"}, {160, "cv"}};
    Fields out{{0, "Smith"}, {63, "g2"}, {116, "c"}, {120, "d"}, {127, "e"}, {129, "g"}, {160, "cv"}};
    EXPECT_EQ(rewritten(cl_RemoveTxTFields, in), out);
}

TEST(RouteTracing, BothRewritesTraceOnEveryCall) {
    testkit::TraceCapture traces;
    std::string orn = name_of({{0, "A"}});
    cl_SimplifyRoute(orn.data());
    cl_RemoveTxTFields(orn.data());
    EXPECT_EQ(traces.named("cl_SimplifyRoute"),
              (std::vector<testkit::TraceRecord>{{17, "cl_SimplifyRoute", 1}, {17, "cl_SimplifyRoute", 0}}));
    EXPECT_EQ(traces.named("cl_RemoveTxTFields").size(), 2u);
}

}  // namespace
