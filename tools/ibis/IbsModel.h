// IbsModel: what an IBIS file says about its components and models, read
// once from the lexer's sections, the same way for both tools: each
// [Component] with the models its [Pin] rows name, each [Model] with the
// Executable lines of its [Algorithmic Model], its [Rgnd] and [Rpower] and
// its typical [GND Clamp] curve. ibischeck judges these against the IBIS
// rules; amihost picks the receiver it runs from them.
#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tools/ibis/IbisLexer.h"

namespace ibis {

struct IbisExecutable {
    int nLine = 0;
    std::string sKeyword;   // Executable, Executable_Rx or Executable_Tx, as written
    bool bComplete = false; // platform, file and .ami all given, and nothing more
    std::string sPlatform;  // platform_compiler_bits, e.g. Linux_gcc12_64
    int nBits = 0;          // 32 or 64 from the platform; 0 when the platform is not of that form
    std::string sLibrary;   // as written, relative to the .ibs folder
    std::string sAmi;       // likewise
};

struct IbisModelInfo {
    std::string sName;
    int nLine = 0;
    std::vector<IbisExecutable> vExecutables;
    std::optional<double> dRgnd, dRpower;             // typ, ohms, when given as a number
    std::vector<std::pair<double, double>> vGndClamp; // V, I typ
};

struct IbisComponentInfo {
    std::string sName;
    int nLine = 0;
    std::vector<std::string> vPinModels;  // the model column of [Pin], in order
};

class IbsModel {
public:
    static IbsModel Read(const std::vector<IbisSection>& sections);
    // An Executable line's tokens; nullopt when the line is none.
    static std::optional<IbisExecutable> ReadExecutable(const IbisLine& line);

    std::vector<IbisComponentInfo> vComponents;  // in file order
    std::vector<IbisModelInfo> vModels;          // likewise
    // What keeps the file from being read at all: "line 12: keyword without ']'".
    std::vector<std::pair<int, std::string>> vProblems;

    const IbisModelInfo* FindModel(const std::string& name) const;
};

}  // namespace ibis
