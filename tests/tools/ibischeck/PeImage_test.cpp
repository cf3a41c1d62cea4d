// PeImage: small PE images written here (one section holding the export and
// import directories), each with one fault, and the Windows kit's own DLL.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "Fixture.h"
#include "tools/ibischeck/PeImage.h"

using ibischeck::PeImage;

namespace {

struct PeLayout {
    int bits = 64;
    unsigned machine = 0x8664;
    bool dll = true;
    std::vector<std::string> exports = {"AMI_Close", "AMI_GetWave", "AMI_Init"};
    std::vector<std::string> imports = {"KERNEL32.dll", "msvcrt.dll"};
};

void Put(std::string& b, size_t at, uint64_t v, int bytes) {
    if (b.size() < at + bytes) b.resize(at + bytes, '\0');
    for (int i = 0; i < bytes; ++i) b[at + i] = char(v >> (8 * i));
}

// DOS header, PE header at 0x40, optional header with 16 directories, one
// section at file offset 0x400 mapped at RVA 0x1000.
std::string MakePe(const PeLayout& s) {
    std::string b(0x400, '\0');
    b.replace(0, 2, "MZ");
    Put(b, 0x3C, 0x40, 4);
    b.replace(0x40, 4, std::string("PE\0\0", 4));
    const size_t opt = 0x58, optSize = s.bits == 64 ? 240 : 224, dirs = opt + optSize - 128;
    Put(b, 0x44, s.machine, 2);
    Put(b, 0x46, 1, 2);  // one section
    Put(b, 0x54, optSize, 2);
    Put(b, 0x56, s.dll ? 0x2022 : 0x0022, 2);
    Put(b, opt, s.bits == 64 ? 0x20B : 0x10B, 2);
    Put(b, dirs - 4, 16, 4);
    // Section data: export directory, name pointers, import descriptors, strings.
    std::string data(0x40, '\0');
    const uint32_t base = 0x1000;
    auto text = [&](const std::string& t) {
        const uint32_t rva = base + uint32_t(data.size());
        data += t + '\0';
        return rva;
    };
    const size_t namesAt = data.size();
    data.resize(namesAt + 4 * s.exports.size() + 20 * (s.imports.size() + 1), '\0');
    const size_t importsAt = namesAt + 4 * s.exports.size();
    Put(data, 24, s.exports.size(), 4);
    Put(data, 32, base + namesAt, 4);
    for (size_t i = 0; i < s.exports.size(); ++i) Put(data, namesAt + 4 * i, text(s.exports[i]), 4);
    for (size_t i = 0; i < s.imports.size(); ++i) Put(data, importsAt + 20 * i + 12, text(s.imports[i]), 4);
    Put(b, dirs, base, 4);                 // export directory
    Put(b, dirs + 8, base + importsAt, 4);  // import directory
    const size_t section = opt + optSize;
    b.replace(section, 5, ".data");
    Put(b, section + 8, data.size(), 4);
    Put(b, section + 12, base, 4);
    Put(b, section + 16, data.size(), 4);
    Put(b, section + 20, 0x400, 4);
    return b + data;
}

std::vector<std::string> Problems(const std::string& bytes, bool getWave = true) {
    ibischeck_test::TempDir dir;
    PeImage image;
    std::string problem;
    if (!PeImage::Read(dir.Write("x.dll", bytes), image, problem)) return {"read: " + problem};
    return image.Problems(64, getWave);
}

}  // namespace

TEST(PeImage, EachFaultIsNamed) {
    using V = std::vector<std::string>;
    PeLayout pe32;
    pe32.bits = 32, pe32.machine = 0x14c;
    PeLayout exe, noGetWave, foreign;
    exe.dll = false;
    noGetWave.exports = {"AMI_Init", "AMI_Close"};
    foreign.imports = {"KERNEL32.dll", "libstdc++-6.dll"};
    EXPECT_EQ(Problems(MakePe(PeLayout{})), V{});
    EXPECT_EQ(Problems(MakePe(pe32)), (V{"is a PE32 (32-bit) image, but its platform says 64 bits",
                                         "is built for machine 0x14c, not x86-64"}));
    EXPECT_EQ(Problems(MakePe(exe)), V{"is not a DLL"});
    EXPECT_EQ(Problems(MakePe(noGetWave)), V{"does not export AMI_GetWave"});
    EXPECT_EQ(Problems(MakePe(noGetWave), false), V{});  // a model without GetWave
    EXPECT_EQ(Problems(MakePe(foreign)), V{"imports libstdc++-6.dll, which is not a Windows system DLL"});
}

TEST(PeImage, BrokenFilesAreRefusedWithoutReadingPastTheirEnd) {
    using V = std::vector<std::string>;
    const std::string good = MakePe(PeLayout{});
    std::string farHeader = good, farNames = good, cut = good.substr(0, 0x100);
    Put(farHeader, 0x3C, 0x7FFFFFF0, 4);
    Put(farNames, 0x400 + 32, 0x90000, 4);  // export names outside every section
    EXPECT_EQ(Problems("MZ"), V{"read: is not a Windows PE file (no MZ header)"});
    EXPECT_EQ(Problems("\x7f" "ELF" + std::string(100, '\0')), V{"read: is not a Windows PE file (no MZ header)"});
    EXPECT_EQ(Problems(farHeader), V{"read: is not a Windows PE file (no PE signature)"});
    EXPECT_EQ(Problems(farNames), V{"read: has a broken export name table"});
    EXPECT_EQ(Problems(cut), V{"read: has a truncated section table"});
}
