// The server's binary files are the same on every target: sizes, offsets and
// byte order (32-bit integers, little-endian on x86). Each run writes its
// files under $CL_FIXTURE_DIR/<target>/ and reads the files every other
// target wrote there; CL_FIXTURE_REQUIRE names a target whose files must be
// there. tools/check.sh runs the x86-64 build, the 32-bit build, then the
// x86-64 one again, so each reads what the other wrote.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <string>

#include "testkit.hpp"

namespace {

const std::string kTarget = sizeof(void *) == 8 ? "x86_64" : "i386";
const std::string kOtherTarget = sizeof(void *) == 8 ? "i386" : "x86_64";

// sys/config as qx-inithome lays it out: 512 bytes, the older mail node's
// units at 8, 40, 72, 104 and the primary one's at 140, 172, 204, 236.
std::string config_bytes() {
    std::string bytes(512, '\0');
    bytes.replace(8, 5, "Sales");
    bytes.replace(140, 5, "Sales");
    bytes.replace(172, 6, "London");
    return bytes;
}

std::uint32_t le32(const std::string &bytes, std::size_t at) {
    std::uint32_t v = 0;
    for (int i = 3; i >= 0; --i) v = v << 8 | static_cast<unsigned char>(bytes[at + static_cast<std::size_t>(i)]);
    return v;
}

TEST(BinaryFiles, WrittenByOneTargetReadByTheOther) {
    const char *fixtures = std::getenv("CL_FIXTURE_DIR");
    testkit::TempHome scratch;  // the home when no fixture directory is given
    const std::string base = fixtures ? fixtures : scratch.path();
    const std::string other = base + "/" + kOtherTarget, mine = base + "/" + kTarget;
    const char *required = std::getenv("CL_FIXTURE_REQUIRE");
    if (required && kOtherTarget == required) {
        ASSERT_TRUE(std::filesystem::exists(other + "/sys/sysdata")) << other;
    }

    // The other target's files first: the start count is cached per process.
    if (std::filesystem::exists(other + "/sys/sysdata")) {
        setenv("QX_HOME", other.c_str(), 1);
        char pmn[256] = {}, record[1024] = {};
        testkit::Outcome read = testkit::run([&] {
            cl_ReadPMN(pmn);
            cl_ReadDefMNode(2, record);
        });
        ASSERT_FALSE(read.escaped) << read.group << "/" << read.reason;
        EXPECT_EQ(testkit::show(pmn), "||||Sales|London");
        EXPECT_EQ(testkit::show(record), "||||Support|Paris");
        EXPECT_EQ(cl_GetSystemStartCount(), 1u);
        EXPECT_GT(cl_GetSystemStartDate(), 1600000000);  // a time of this century, read whole
    }

    std::filesystem::remove_all(mine);
    std::filesystem::create_directories(mine + "/sys");
    setenv("QX_HOME", mine.c_str(), 1);
    testkit::write_file(mine + "/sys/config", config_bytes());
    testkit::write_file(mine + "/sys/sysdata", std::string(48, '\0'));
    const std::int64_t before = std::time(nullptr);
    const std::string record = testkit::packed("||||Support|Paris");  // built outside the block
    testkit::Outcome written = testkit::run([&] {
        cl_WriteDefMNode(2, record.c_str());
        cl_IncSystemStartCount();
    });
    const std::int64_t after = std::time(nullptr);
    ASSERT_FALSE(written.escaped) << written.group << "/" << written.reason;

    const std::string defmnode = testkit::read_file(mine + "/sys/defmnode");
    ASSERT_EQ(defmnode.size(), 3u * 1024);  // records 0 to 2, 1024 bytes each
    EXPECT_EQ(testkit::show(defmnode.substr(2048, 18)), testkit::show(record + '\0'));
    EXPECT_EQ(defmnode.find_first_not_of('\0', 2048 + 18), std::string::npos);
    const std::string sysdata = testkit::read_file(mine + "/sys/sysdata");
    ASSERT_EQ(sysdata.size(), 48u);
    EXPECT_EQ(le32(sysdata, 40), 1u);  // the count, then the date: 32 bits each
    EXPECT_GE(static_cast<std::int64_t>(le32(sysdata, 44)), before);
    EXPECT_LE(static_cast<std::int64_t>(le32(sysdata, 44)), after);
    EXPECT_EQ(sysdata.find_first_not_of('\0'), 40u);
    setenv("QX_HOME", scratch.path().c_str(), 1);
}

}  // namespace
