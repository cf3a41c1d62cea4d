// PeImage: reads a Windows library (a PE image) as a file, without loading
// it: what it is built for, what it exports and which DLLs it imports. So a
// kit's Windows Executable line is checked on any system.
#pragma once

#include <string>
#include <vector>

namespace ibischeck {

struct PeImage {
    int nBits = 0;                      // 32 (PE32) or 64 (PE32+)
    unsigned nMachine = 0;              // COFF machine: 0x8664 x86-64, 0x14c x86
    bool bDll = false;                  // IMAGE_FILE_DLL
    std::vector<std::string> vExports;  // exported names
    std::vector<std::string> vImports;  // imported DLL names

    // Reads `path`; on failure returns false with `problem` saying why.
    static bool Read(const std::string& path, PeImage& image, std::string& problem);

    // What keeps this image from serving as a `bits`-bit x86 IBIS-AMI model
    // on a stock Windows: one sentence per fault, none when it is fine.
    std::vector<std::string> Problems(int bits, bool getWaveExists) const;
};

}  // namespace ibischeck
