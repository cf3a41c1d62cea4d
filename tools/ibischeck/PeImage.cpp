// PeImage: the DOS stub's pointer to the PE header, the COFF header, the
// optional header's export and import directories, and the section table to
// turn their relative virtual addresses into file offsets (Microsoft's PE/COFF
// format). Every offset is checked against the file before it is read.
#include "tools/ibischeck/PeImage.h"

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>

#include "tools/base/Text.h"

namespace ibischeck {

using amihost::Lower;

namespace {

constexpr size_t kMaxImageBytes = 512u << 20;
constexpr unsigned kMachineX86_64 = 0x8664, kMachineI386 = 0x14c;
constexpr unsigned kFileDll = 0x2000;

struct Bytes {
    std::string data;
    bool Has(uint64_t at, uint64_t n) const { return at <= data.size() && n <= data.size() - at; }
    uint32_t U16(uint64_t at) const { return uint8_t(data[at]) | uint8_t(data[at + 1]) << 8; }
    uint32_t U32(uint64_t at) const { return U16(at) | U16(at + 2) << 16; }
};

struct Section {
    uint32_t rva, size, file;
};

// File offset of `rva`, or -1 when no section holds it.
int64_t Offset(const std::vector<Section>& sections, uint32_t rva) {
    for (const Section& s : sections)
        if (rva >= s.rva && rva - s.rva < s.size) return int64_t(s.file) + (rva - s.rva);
    return -1;
}

// A NUL-terminated name at `rva`, at most 256 characters.
bool Name(const Bytes& b, const std::vector<Section>& sections, uint32_t rva, std::string& name) {
    const int64_t at = Offset(sections, rva);
    if (at < 0) return false;
    name.clear();
    for (uint64_t i = uint64_t(at); i < b.data.size() && name.size() < 256; ++i) {
        if (b.data[i] == '\0') return true;
        name += std::isprint(static_cast<unsigned char>(b.data[i])) ? b.data[i] : '?';  // echoed in messages
    }
    return false;
}

// DLLs that every Windows installation has.
bool SystemDll(const std::string& dll) {
    static const char* const kSystem[] = {"kernel32.dll", "msvcrt.dll", "ntdll.dll", "advapi32.dll",
                                          "user32.dll",   "ws2_32.dll", "bcrypt.dll", "ucrtbase.dll"};
    const std::string d = Lower(dll);
    return std::find(std::begin(kSystem), std::end(kSystem), d) != std::end(kSystem) || d.rfind("api-ms-win-", 0) == 0;
}

}  // namespace

bool PeImage::Read(const std::string& path, PeImage& image, std::string& problem) {
    std::ifstream in(path, std::ios::binary);
    Bytes b;
    if (in) b.data.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    if (!in.good() && !in.eof()) return problem = "cannot be read", false;
    if (b.data.size() > kMaxImageBytes) return problem = "is larger than 512 MB", false;
    if (!b.Has(0, 64) || b.data.compare(0, 2, "MZ") != 0) return problem = "is not a Windows PE file (no MZ header)", false;
    const uint32_t pe = b.U32(0x3C);
    if (!b.Has(pe, 24) || b.data.compare(pe, 4, std::string("PE\0\0", 4)) != 0)
        return problem = "is not a Windows PE file (no PE signature)", false;
    image.nMachine = b.U16(pe + 4);
    const uint32_t numSections = b.U16(pe + 6), optionalSize = b.U16(pe + 20);
    image.bDll = (b.U16(pe + 22) & kFileDll) != 0;
    const uint64_t opt = pe + 24;
    if (!b.Has(opt, 2)) return problem = "has no optional header", false;
    const uint32_t magic = b.U16(opt);
    image.nBits = magic == 0x20B ? 64 : magic == 0x10B ? 32 : 0;
    if (image.nBits == 0) return problem = "has an unknown optional-header magic", false;
    const uint64_t dirs = opt + (image.nBits == 64 ? 112 : 96), countAt = dirs - 4;
    if (!b.Has(countAt, 4) || countAt + 4 > opt + optionalSize) return problem = "has a truncated optional header", false;
    const uint32_t numDirs = b.U32(countAt);

    std::vector<Section> sections;
    const uint64_t table = opt + optionalSize;
    if (!b.Has(table, uint64_t(numSections) * 40)) return problem = "has a truncated section table", false;
    for (uint32_t i = 0; i < numSections; ++i) {
        const uint64_t s = table + uint64_t(i) * 40;
        sections.push_back({b.U32(s + 12), std::max(b.U32(s + 8), b.U32(s + 16)), b.U32(s + 20)});
    }
    auto directory = [&](uint32_t k, uint32_t& rva) {
        rva = 0;
        if (k >= numDirs || !b.Has(dirs + 8 * k, 8) || dirs + 8 * k + 8 > opt + optionalSize) return false;
        rva = b.U32(dirs + 8 * k);
        return rva != 0;
    };

    uint32_t rva = 0;
    if (directory(0, rva)) {  // exports
        const int64_t e = Offset(sections, rva);
        if (e < 0 || !b.Has(uint64_t(e), 40)) return problem = "has a broken export directory", false;
        const uint32_t count = b.U32(e + 24);
        const int64_t names = Offset(sections, b.U32(e + 32));
        if (count > 65536 || (count > 0 && (names < 0 || !b.Has(uint64_t(names), uint64_t(count) * 4))))
            return problem = "has a broken export name table", false;
        for (uint32_t i = 0; i < count; ++i) {
            std::string name;
            if (!Name(b, sections, b.U32(uint64_t(names) + 4 * i), name)) return problem = "has a broken export name", false;
            image.vExports.push_back(name);
        }
    }
    if (directory(1, rva)) {  // imports: descriptors of 20 bytes up to an empty one
        int64_t d = Offset(sections, rva);
        for (int n = 0;; ++n, d += 20) {
            if (d < 0 || !b.Has(uint64_t(d), 20) || n > 4096) return problem = "has a broken import directory", false;
            const uint32_t nameRva = b.U32(uint64_t(d) + 12);
            if (nameRva == 0) break;
            std::string name;
            if (!Name(b, sections, nameRva, name)) return problem = "has a broken import name", false;
            image.vImports.push_back(name);
        }
    }
    return true;
}

std::vector<std::string> PeImage::Problems(int bits, bool getWaveExists) const {
    std::vector<std::string> p;
    if (nBits != bits)
        p.push_back("is a " + std::string(nBits == 64 ? "PE32+ (64-bit)" : "PE32 (32-bit)") +
                    " image, but its platform says " + std::to_string(bits) + " bits");
    const unsigned expected = bits == 64 ? kMachineX86_64 : kMachineI386;
    if (nMachine != expected) {
        char text[80];
        snprintf(text, sizeof text, "is built for machine 0x%x, not %s", nMachine, bits == 64 ? "x86-64" : "x86");
        p.push_back(text);
    }
    if (!bDll) p.push_back("is not a DLL");
    for (const char* entry : {"AMI_Init", "AMI_GetWave", "AMI_Close"}) {
        if (!getWaveExists && std::string(entry) == "AMI_GetWave") continue;
        if (std::find(vExports.begin(), vExports.end(), entry) == vExports.end())
            p.push_back(std::string("does not export ") + entry);
    }
    for (const std::string& dll : vImports)
        if (!SystemDll(dll)) p.push_back("imports " + dll + ", which is not a Windows system DLL");
    return p;
}

}  // namespace ibischeck
